// The entry points of the framework: what modules link against.
#include "framework/fwbase.h"
#include "framework/xml.h"
#include "host/framework.h"
#include "host/xml_document.h"

namespace fwbase
{

std::uint32_t IRunLog::ms_type_sign = 0xFFFFFFFF;

IFWBase* IFWBase::instance()
{
    return &host::framework();
}

} // namespace fwbase

IXmlDocument* newXmlDocument()
{
    return host::new_xml_document();
}
