// The XML library of the reference host, on libxml2.
#pragma once

#include "framework/xml.h"

#include <string>

namespace fwbase
{

/// A new, empty document, which the caller owns. Safe to call from several threads.
IXmlDocument* new_xml_document();

/// The text of this thread's latest CLiteXmlException since the previous call; empty if there was
/// none. A module reports only that an operation failed; this is the reason.
std::string take_last_xml_error();

} // namespace fwbase
