// The XML library of the reference host, on libxml2.
#pragma once

#include "framework/xml.h"

#include <string>

namespace fwbase
{

/// A new, empty document, which the caller owns. Safe to call from several threads.
///
/// Documents are UTF-8 (or ASCII) files of at most 16 MiB without a document type declaration.
/// Saving keeps everything that was not changed, except for white space outside the root element
/// and the notation inside tags; a file without an XML declaration gets none.
IXmlDocument* new_xml_document();

/// The text of the latest CLiteXmlException of this thread since the last such call; empty when
/// there was none. Modules tell their callers only that an operation failed: this is the reason.
std::string take_last_xml_error();

} // namespace fwbase
