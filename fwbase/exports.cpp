// What modules link against. Tests link the other objects and define these symbols themselves.
#include "framework/fwbase.h"
#include "framework/xml.h"
#include "fwbase/framework.h"
#include "fwbase/xml_document.h"

std::uint32_t fwbase::IRunLog::ms_type_sign = 0xFFFFFFFF;

fwbase::IFWBase* fwbase::IFWBase::instance()
{
    return &reference_framework();
}

IXmlDocument* newXmlDocument()
{
    return fwbase::new_xml_document();
}
