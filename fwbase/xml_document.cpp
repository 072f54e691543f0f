#include "fwbase/xml_document.h"

#include "fwbase/atomic_file.h"

#include <algorithm>
#include <cstring>
#include <forward_list>
#include <libxml/SAX2.h>
#include <libxml/chvalid.h>
#include <libxml/parser.h>
#include <libxml/xmlsave.h>
#include <libxml/xpath.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

namespace fwbase
{

namespace
{

template <class T>
using xml_ptr = std::unique_ptr<T, void (*)(T*)>;

/// Puts an object of libxml2 into a guard that frees it with `free`.
template <class T, class Free>
std::unique_ptr<T, Free> own(T* object, Free free)
{
    return {object, free};
}

const char* to_chars(const xmlChar* text)
{
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

/// Collects the errors that libxml2 reports in this thread while it lives, instead of printing
/// them. The thread's error handlers may be the host's, so they are restored.
class Errors
{
public:
    /// What the exceptions name: the file and the operation. Both must outlive the object.
    Errors(const char* file, const char* operation) : m_file(file), m_operation(operation)
    {
        xmlSetStructuredErrorFunc(this, collect);
        xmlSetGenericErrorFunc(nullptr, discard); // 2.9 prints internal errors of XPath this way
    }
    Errors(const Errors&) = delete;
    ~Errors()
    {
        xmlSetStructuredErrorFunc(m_old_context, m_old_handler);
        xmlSetGenericErrorFunc(m_old_generic_context, m_old_generic_handler);
    }

    /// Throws unless a step succeeded without a fatal error. Out of memory, libxml2 may report one
    /// and return an incomplete result, or fail without a report.
    void require(bool succeeded) const
    {
        if (!succeeded || m_level == XML_ERR_FATAL) {
            const std::string reason = m_reason.empty() ? "out of memory" : m_reason;
            throw CLiteXmlException(m_file, m_line,
                                    std::string("cannot ") + m_operation + ": " + reason);
        }
    }

private:
    /// Keeps the first of the most severe errors. Their type depends on the version of libxml2.
    template <class Error>
    static void collect(void* errors, Error* error) noexcept
    {
        auto* const self = static_cast<Errors*>(errors);
        const int level = error->code == XML_ERR_NO_MEMORY ? XML_ERR_FATAL : error->level;
        if (level > self->m_level) {
            self->m_level = level;
            self->m_line = error->line;
            try {
                self->m_reason = error->message == nullptr ? "" : error->message;
            } catch (const std::bad_alloc&) { // must not pass through libxml2
            }
        }
    }

    static void discard(void*, const char*, ...) {}
    const xmlStructuredErrorFunc m_old_handler = xmlStructuredError;
    void* const m_old_context = xmlStructuredErrorContext;
    const xmlGenericErrorFunc m_old_generic_handler = xmlGenericError;
    void* const m_old_generic_context = xmlGenericErrorContext;
    const char* const m_file;
    const char* const m_operation;
    int m_level = XML_ERR_NONE;
    int m_line = 0;
    std::string m_reason;
};

constexpr const char* byte_order_mark = "\xEF\xBB\xBF";

/// Throws unless the text is UTF-8 and XML allows all of its characters. libxml2 alone does not
/// do: 2.9 accepts overlong forms, and takes a NUL byte for the end.
void require_characters(const char* file, std::string_view text, bool has_lines)
{
    constexpr int least[] = {0, 0, 0x80, 0x800, 0x10000}; // smallest code point of so many bytes
    const auto is_plain = [](char c) { return c >= ' ' && c <= '~'; };
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); (at = std::find_if_not(at, end, is_plain)) != end;) {
        int length = static_cast<int>(std::min<std::ptrdiff_t>(end - at, 4));
        const int code = xmlGetUTF8Char(BAD_CAST at, &length);
        const bool continues = (*at & 0xC0) == 0x80; // libxml2 2.9 misses this, too
        if (code < least[length] || continues || !xmlIsCharQ(static_cast<unsigned int>(code))) {
            const auto lines = has_lines ? 1 + std::count(text.data(), at, '\n') : 0;
            throw CLiteXmlException(
                file, static_cast<int>(lines),
                *at == '\0' ? "a NUL byte" : "not UTF-8, or a character that XML does not allow");
        }
        at += length;
    }
}

/// Parses a file's text, which has no byte order mark any more.
xml_ptr<xmlDoc> parse(const char* file, std::string_view text)
{
    const Errors errors(file, "parse");
    const auto parser = own(xmlNewParserCtxt(), xmlFreeParserCtxt);
    errors.require(parser != nullptr);
    parser->sax->internalSubset = [](void* context, auto...) {
        xmlError error = {};
        error.level = XML_ERR_FATAL;
        error.line = xmlSAX2GetLineNumber(context);
        error.message = const_cast<char*>("document type declarations are refused");
        xmlStructuredError(xmlStructuredErrorContext, &error);
        xmlStopParser(static_cast<xmlParserCtxt*>(context));
    };
    auto document = own(xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()),
                                          nullptr, nullptr, XML_PARSE_NONET),
                        xmlFreeDoc);
    errors.require(document != nullptr);
    // Numbers the elements. Without that, sorting a selection can take quadratic time.
    xmlXPathOrderDocElems(document.get());

    const char* const encoding = to_chars(document->encoding);
    const auto is = [&](const char* name) { return strcasecmp(encoding, name) == 0; };
    const auto is_ascii = [](char c) { return (c & 0x80) == 0; };
    if (!is("") && !is("UTF-8") &&
        !((is("ASCII") || is("US-ASCII")) && std::all_of(text.begin(), text.end(), is_ascii))) {
        throw CLiteXmlException(
            file, 1, std::string("neither UTF-8 nor ASCII, but declared as ") + encoding);
    }
    return document;
}

/// The document as text, after the prefix.
xml_ptr<xmlBuffer> serialise(const char* file, xmlDoc& document, const char* prefix)
{
    const Errors errors(file, "write as text");
    auto buffer = own(xmlBufferCreate(), xmlBufferFree);
    errors.require(buffer != nullptr && xmlBufferCat(buffer.get(), BAD_CAST prefix) == 0);
    // UTF-8 as it was spelled. An ASCII file becomes UTF-8, because new values need not be ASCII.
    const char* const declared = to_chars(document.encoding);
    const char* const encoding = strcasecmp(declared, "UTF-8") == 0 ? declared : "UTF-8";
    const int options = document.standalone == -1 ? XML_SAVE_NO_DECL : 0; // -1: no declaration
    xmlSaveCtxt* const writer = xmlSaveToBuffer(buffer.get(), encoding, options);
    const bool written = writer != nullptr && xmlSaveDoc(writer, &document) >= 0;
    const bool closed = xmlSaveClose(writer) >= 0; // 2.16 returns other codes than -1, too
    errors.require(written && closed);
    return buffer;
}

/// The path of the node's file, which the Document owns.
const char* file_of(const xmlNode* node)
{
    return static_cast<const char*>(node->doc->_private);
}

[[noreturn]] void fail(const xmlNode* node, const char* reason)
{
    throw CLiteXmlException(file_of(node), 0, reason);
}

/// A caller's text, if the node's document can hold it.
const xmlChar* checked(const xmlNode* node, const char* text)
{
    if (text == nullptr) {
        fail(node, "a null pointer instead of a text");
    }
    require_characters(file_of(node), text, false);
    return BAD_CAST text;
}

/// The text of an element or an attribute.
std::string text_of(xmlNode* node)
{
    const xmlNode* const child = node->children;
    if (child == nullptr || (child->next == nullptr && child->type == XML_TEXT_NODE)) {
        return to_chars(child == nullptr ? nullptr : child->content); // without a copy by libxml2
    }
    const Errors errors(file_of(node), "read a value");
    const auto text = own(xmlNodeGetContent(node), xmlFree);
    errors.require(text != nullptr);
    return to_chars(text.get());
}

/// Replaces the text of an element or an attribute.
void set_text(xmlNode* node, const char* value)
{
    const xmlChar* const text = checked(node, value);
    const xmlNode* const old = node->children;
    if (old != nullptr && old->next == nullptr && old->type == XML_TEXT_NODE &&
        xmlStrEqual(old->content, text) == 1) {
        return; // the usual case when the module lists the services
    }
    const Errors errors(file_of(node), "set a value");
    // An element with an empty text would be saved as <a></a>, but loaded and saved again as <a/>.
    auto content = own(*text == 0 ? nullptr : xmlNewDocText(node->doc, text), xmlFreeNode);
    errors.require(content != nullptr || *text == 0);
    auto* const attribute = reinterpret_cast<xmlAttr*>(node);
    if (node->type == XML_ATTRIBUTE_NODE && attribute->atype == XML_ATTRIBUTE_ID) {
        xmlRemoveID(node->doc, attribute); // it is indexed by its old value
    }
    xmlFreeNodeList(node->children);
    node->children = node->last = content.get();
    if (xmlNode* const child = content.release()) {
        child->parent = node;
    }
}

/// The elements and attributes that an expression selects, in document order.
std::vector<xmlNode*> select(xmlNode* context, const char* xpath)
{
    const xmlChar* const expression = checked(context, xpath);
    const std::string operation = std::string("evaluate ") + xpath;
    const Errors errors(file_of(context), operation.c_str());
    const auto evaluation = own(xmlXPathNewContext(context->doc), xmlXPathFreeContext);
    errors.require(evaluation != nullptr);
    evaluation->node = context;
    evaluation->error = xmlStructuredError; // without it, 2.9 does not report a lack of memory
    evaluation->userData = xmlStructuredErrorContext;
    const auto result = own(xmlXPathEval(expression, evaluation.get()), xmlXPathFreeObject);
    errors.require(result != nullptr);
    const xmlNodeSet* const set = result->nodesetval;
    std::vector<xmlNode*> nodes;
    if (set != nullptr) {
        nodes.assign(set->nodeTab, set->nodeTab + set->nodeNr);
    }
    const auto fits = [](const xmlNode* node) {
        return node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE;
    };
    if (result->type != XPATH_NODESET || !std::all_of(nodes.begin(), nodes.end(), fits)) {
        fail(context, "only elements and attributes can be selected");
    }
    return nodes;
}

class NodeList final : public IXmlNodeList
{
public:
    NodeList(xmlNode* node, const char* xpath) : m_context(node), m_nodes(select(node, xpath)) {}

    IXmlNode* item(int position) override;
    int count() override { return static_cast<int>(m_nodes.size()); }
    void release() override { delete this; }

private:
    const xmlNode* m_context;
    std::vector<xmlNode*> m_nodes;
};

/// An element or an attribute. An element's attribute belongs to the Node that gave it out; all
/// other Nodes belong to the caller.
class Node final : public IXmlNode
{
public:
    explicit Node(xmlNode* node) : m_node(node) {}
    /// The attribute of an element, which may lack it.
    Node(xmlNode* element, const char* name) : m_element(element), m_name(name) {}

    IXmlNode* attribute(const char* name) override
    {
        xmlNode* const node = element();
        if (name == nullptr) {
            fail(node, "a null pointer instead of a name");
        }
        for (Node& known : m_attributes) {
            if (std::strcmp(known.m_name.c_str(), name) == 0) {
                return &known;
            }
        }
        return &m_attributes.emplace_front(node, name);
    }
    std::string value() override { return exists() ? text_of(m_node) : std::string(); }
    void setValue(const char* text) override { exists() ? set_text(m_node, text) : create(text); }
    IXmlNodeList* selectNodes(const char* xpath) override { return new NodeList(element(), xpath); }
    IXmlNode* selectSingleNode(const char* xpath) override
    {
        const std::vector<xmlNode*> nodes = select(element(), xpath);
        return nodes.empty() ? nullptr : new Node(nodes.front());
    }
    void release() override
    {
        if (m_element == nullptr) {
            delete this;
        }
    }

    /// The node, if it has attributes, selections and children.
    xmlNode* element() const
    {
        if (m_node == nullptr || m_node->type != XML_ELEMENT_NODE) {
            fail(m_node == nullptr ? m_element : m_node, "only possible with an element");
        }
        return m_node;
    }

private:
    /// Another Node may have created the attribute. Attributes are never removed.
    bool exists()
    {
        if (m_node == nullptr) {
            m_node = reinterpret_cast<xmlNode*>(
                xmlHasNsProp(m_element, BAD_CAST m_name.c_str(), nullptr));
        }
        return m_node != nullptr;
    }
    void create(const char* value)
    {
        const xmlChar* const text = checked(m_element, value);
        // libxml2 would create an attribute of any name, but not load it again.
        if (m_name == "xmlns" || xmlValidateNCName(checked(m_element, m_name.c_str()), 0) != 0) {
            fail(m_element, "not a valid name for an attribute");
        }
        const Errors errors(file_of(m_element), "create an attribute");
        xmlAttr* const attribute = xmlNewNsProp(m_element, nullptr, BAD_CAST m_name.c_str(), text);
        errors.require(attribute != nullptr && attribute->name != nullptr);
        m_node = reinterpret_cast<xmlNode*>(attribute);
    }

    xmlNode* m_node = nullptr;    // null while the element lacks the attribute
    xmlNode* m_element = nullptr; // null in a Node that belongs to the caller
    std::string m_name;
    std::forward_list<Node> m_attributes;
};

IXmlNode* NodeList::item(int position)
{
    if (static_cast<std::size_t>(position) >= m_nodes.size()) { // too large if negative
        fail(m_context, "the position is outside the list");
    }
    return new Node(m_nodes[static_cast<std::size_t>(position)]);
}

/// The blanks in front of an element; null if there are none.
xmlNode* indentation_of(const xmlNode* element)
{
    xmlNode* const before = element == nullptr ? nullptr : element->prev;
    return before != nullptr && xmlIsBlankNode(before) == 1 ? before : nullptr;
}

class Document final : public IXmlDocument
{
public:
    void load(const char* path) override
    {
        m_document.reset();
        m_path = path;
        const std::string bytes = m_file.load(path);
        std::string_view text = bytes;
        m_prefix = text.substr(0, 3) == byte_order_mark ? byte_order_mark : "";
        text.remove_prefix(std::strlen(m_prefix));
        require_characters(path, text, true);
        m_document = parse(path, text);
        m_document->_private = m_path.data();
    }
    IXmlNode* root() override { return new Node(xmlDocGetRootElement(&loaded())); }
    void save(const char* path) override
    {
        const xml_ptr<xmlBuffer> text = serialise(m_path.c_str(), loaded(), m_prefix);
        m_file.save(path, {to_chars(xmlBufferContent(text.get())),
                           static_cast<std::size_t>(xmlBufferLength(text.get()))});
    }
    void release() override { delete this; }

private:
    xmlDoc& loaded() const
    {
        if (m_document == nullptr) {
            throw CLiteXmlException(m_path, 0, "no document is loaded");
        }
        return *m_document;
    }

    AtomicFile m_file;
    std::string m_path;
    const char* m_prefix = ""; // the byte order mark, if the file has one
    xml_ptr<xmlDoc> m_document{nullptr, xmlFreeDoc};
};

} // namespace

void add_element(IXmlNode& parent, const char* name,
                 const std::vector<std::pair<const char*, std::string>>& attributes)
{
    xmlNode* const above = static_cast<Node&>(parent).element();
    auto element =
        own(xmlNewDocNode(above->doc, nullptr, checked(above, name), nullptr), xmlFreeNode);
    {
        const Errors errors(file_of(above), "create an element");
        errors.require(element != nullptr);
    }
    Node created(element.get());
    for (const auto& [attribute, value] : attributes) {
        created.attribute(attribute)->setValue(value.c_str());
    }
    xmlNode* const last = xmlLastElementChild(above);
    const xmlNode* const blanks = indentation_of(last);
    auto indentation = own(
        blanks == nullptr ? nullptr : xmlDocCopyNode(const_cast<xmlNode*>(blanks), above->doc, 0),
        xmlFreeNode);
    const Errors errors(file_of(above), "create an element");
    errors.require(indentation != nullptr || blanks == nullptr);
    if (last == nullptr) {
        xmlAddChild(above, element.release());
        return;
    }
    // The text comes after the element: added first, it would be merged with the text before it.
    xmlNode* const added = xmlAddNextSibling(last, element.release());
    if (indentation != nullptr) {
        xmlAddPrevSibling(added, indentation.release());
    }
}

void remove_element(IXmlNode& element)
{
    xmlNode* const node = static_cast<Node&>(element).element();
    const auto blanks = own(indentation_of(node), xmlFreeNode);
    const auto removed = own(node, xmlFreeNode);
    xmlUnlinkNode(blanks.get());
    xmlUnlinkNode(node);
}

IXmlDocument* new_xml_document()
{
    // Before any thread parses. libxml2's own later calls do nothing.
    [[maybe_unused]] static const bool initialised = (xmlInitParser(), true);
    return new Document;
}

} // namespace fwbase
