// The host framework's XML library: a document, its nodes, and lists of nodes.
//
// The order of the virtual operations is a binary contract: append only.
//
// Paths and texts are NUL-terminated; texts are UTF-8. Every failure is a CLiteXmlException. Out of
// memory may be reported as std::bad_alloc instead. An operation returns null only where its
// comment says so. A document and everything obtained from it belong to one thread at a time;
// documents are independent of one another. Release nodes and lists before their document, and
// before it loads another file.
//
// Saving keeps everything that was not changed: comments, CDATA sections, processing instructions,
// unknown elements and attributes. It may change the notation.
#pragma once

#include "framework/binary_contract.h"

#include <exception>
#include <string>

#pragma GCC visibility push(default)

/// Every failure of the library: the file, the line (0 if unknown) and the reason.
class CLiteXmlException : public std::exception
{
public:
    CLiteXmlException(std::string file, int line, const std::string& reason);
    ~CLiteXmlException() override;

    /// "FILE:LINE: REASON" on one line, without the parts that are unknown.
    const char* what() const noexcept override;

private:
    std::string m_what;
};

class IXmlNodeList;

/// An element or an attribute.
class IXmlNode
{
public:
    /// The element's attribute of that name, which has no name space. Belongs to this node, is
    /// valid as long as it, and is never released. If the element lacks the attribute, it reads as
    /// empty, and setValue creates it.
    virtual IXmlNode* attribute(const char* name) = 0;
    /// An attribute's value, or the whole text of an element.
    virtual std::string value() = 0;
    /// Replaces the value by a text, never by markup. Refuses a text that is not UTF-8 or has a
    /// character that XML does not allow. Nodes and lists that refer to an element's old content
    /// are invalid afterwards and may only be released.
    virtual void setValue(const char* text) = 0;
    /// All elements and attributes that the XPath expression selects from this element, in document
    /// order; the list may be empty. The caller owns it. Refuses an expression that selects
    /// anything else.
    virtual IXmlNodeList* selectNodes(const char* xpath) = 0;
    /// The first of those nodes, which the caller owns, or null.
    virtual IXmlNode* selectSingleNode(const char* xpath) = 0;
    virtual void release() = 0;

protected:
    ~IXmlNode() = default;
};

/// The result of a selection.
class IXmlNodeList
{
public:
    /// The node at a position from 0 to count() - 1, in constant time; the caller owns it.
    virtual IXmlNode* item(int position) = 0;
    virtual int count() = 0;
    virtual void release() = 0;

protected:
    ~IXmlNodeList() = default;
};

/// One XML file in memory.
class IXmlDocument
{
public:
    /// Loads a file in UTF-8. After a failure the document is empty.
    virtual void load(const char* path) = 0;
    /// The root element, which the caller owns.
    virtual IXmlNode* root() = 0;
    /// Replaces the file by the document, completely or not at all. Should fail if the file at the
    /// path that it was loaded from is no longer the loaded one.
    virtual void save(const char* path) = 0;
    virtual void release() = 0;

protected:
    ~IXmlDocument() = default;
};

/// A new, empty document, which the caller owns.
IXmlDocument* newXmlDocument();

#pragma GCC visibility pop
