// The XML library of the reference host, on libxml2.
#pragma once

#include "framework/xml.h"

#include <string>
#include <utility>
#include <vector>

namespace fwbase
{

/// A new, empty document, which the caller owns. Safe to call from several threads.
IXmlDocument* new_xml_document();

/// Adds an element as the last child element of another one, indented like its siblings. Its
/// attributes are names and values in UTF-8. Only for nodes of this library's documents. Throws
/// CLiteXmlException or std::bad_alloc; the document is unchanged then.
void add_element(IXmlNode& parent, const char* name,
                 const std::vector<std::pair<const char*, std::string>>& attributes);

/// Removes an element, and the blanks in front of it, from its document. Every other IXmlNode that
/// stands for the element, or for a part of it, may only be released afterwards. Only for elements
/// of this library's documents.
void remove_element(IXmlNode& element);

} // namespace fwbase
