// The host framework's XML library: a document, its nodes, and lists of nodes.
//
// Paths and texts are NUL-terminated; texts are UTF-8. Every failure is a CLiteXmlException, but
// that memory which ends may also be std::bad_alloc. A document and what was obtained from it
// belong to one thread at a time; documents are independent of one another. Nodes and lists are
// given back before their document.
#pragma once

#include <exception>
#include <string>

#pragma GCC visibility push(default)

/// Every failure of the library: which file, which line (0: the failure has none), and why.
class CLiteXmlException : public std::exception
{
public:
    CLiteXmlException(std::string file, int line, const std::string& reason);
    ~CLiteXmlException() override;

    /// "FILE:LINE: REASON", without the parts that the failure does not have.
    const char* what() const noexcept override;

private:
    std::string m_what;
};

class IXmlNodeList;

/// An element or an attribute.
class IXmlNode
{
public:
    /// The element's attribute of that name. It stays the element's and is never released. An
    /// attribute that the element lacks reads as empty and comes into being with setValue.
    virtual IXmlNode* attribute(const char* name) = 0;
    /// An attribute's value, or the whole text of an element.
    virtual std::string value() = 0;
    /// Replaces the value by a text, which is no markup.
    virtual void setValue(const char* text) = 0;
    /// All nodes that the XPath expression matches, in document order; the list may be empty. The
    /// caller owns it.
    virtual IXmlNodeList* selectNodes(const char* xpath) = 0;
    /// The first node that the XPath expression matches, which the caller owns, or null.
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
    /// Replaces the document by the file's. A failure leaves it empty.
    virtual void load(const char* path) = 0;
    /// The root element, which the caller owns.
    virtual IXmlNode* root() = 0;
    /// Replaces the file by the document, completely or not at all.
    virtual void save(const char* path) = 0;
    virtual void release() = 0;

protected:
    ~IXmlDocument() = default;
};

/// A new, empty document, which the caller owns.
IXmlDocument* newXmlDocument();

#pragma GCC visibility pop
