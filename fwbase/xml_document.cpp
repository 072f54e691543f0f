#include "fwbase/xml_document.h"

#include "fwbase/atomic_file.h"

#include <algorithm>
#include <climits>
#include <forward_list>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlsave.h>
#include <libxml/xpath.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <strings.h>
#include <utility>
#include <vector>

namespace fwbase
{

namespace
{

struct XmlDeleter {
    void operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
    void operator()(xmlNode* node) const noexcept { xmlFreeNode(node); }
    void operator()(xmlParserCtxt* parser) const noexcept { xmlFreeParserCtxt(parser); }
    void operator()(xmlXPathContext* context) const noexcept { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* object) const noexcept { xmlXPathFreeObject(object); }
    void operator()(xmlBuffer* buffer) const noexcept { xmlBufferFree(buffer); }
    void operator()(xmlChar* text) const noexcept { xmlFree(text); }
};

template <class T>
using xml_ptr = std::unique_ptr<T, XmlDeleter>;

[[noreturn]] void out_of_memory()
{
    throw CLiteXmlException({}, 0, "out of memory"); // short enough to need none
}

/// Passes on what libxml2 returned, unless that is null for want of memory.
template <class T>
T* allocated(T* object)
{
    if (object == nullptr) {
        out_of_memory();
    }
    return object;
}

const char* to_chars(const xmlChar* text)
{
    return reinterpret_cast<const char*>(text);
}

const xmlChar* to_xml(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

/// Takes the errors that libxml2 would print while the trap lives, and remembers whether memory
/// ended: often libxml2 says so in no other way. Where errors go belongs to the thread and may be
/// the host's choice, so it is put back.
class ErrorTrap
{
public:
    ErrorTrap()
    {
        xmlSetStructuredErrorFunc(this, take);
        xmlSetGenericErrorFunc(nullptr, print_nothing);
    }
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;
    ~ErrorTrap()
    {
        xmlSetStructuredErrorFunc(m_structured_context, m_structured);
        xmlSetGenericErrorFunc(m_generic_context, m_generic);
    }

    void require_memory() const
    {
        if (m_no_memory) {
            out_of_memory();
        }
    }

private:
    // The type of an error's pointer depends on the version of libxml2.
    template <class Error>
    static void take(void* trap, Error* error)
    {
        if (error->code == XML_ERR_NO_MEMORY) {
            static_cast<ErrorTrap*>(trap)->m_no_memory = true;
        }
    }
    static void print_nothing(void*, const char*, ...) {}

    const xmlStructuredErrorFunc m_structured = xmlStructuredError;
    void* const m_structured_context = xmlStructuredErrorContext;
    const xmlGenericErrorFunc m_generic = xmlGenericError;
    void* const m_generic_context = xmlGenericErrorContext;
    bool m_no_memory = false;
};

// ---- Text -------------------------------------------------------------------------------------

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/// The first place where bytes cannot be the text of a document.
struct Flaw {
    const char* reason; // null when there is none
    std::size_t offset;
};

/// The character that a text begins with, and its length in bytes; 0 when it is not UTF-8.
struct Character {
    unsigned int code;
    std::size_t length;
};

Character first_character(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned int lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return {0, 0};
    }
    unsigned int code = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {
            return {0, 0};
        }
        code = code << 6U | (byte(i) & 0x3FU);
    }
    const bool overlong = code < (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (overlong || surrogate || code > 0x10FFFF) {
        return {0, 0};
    }
    return {code, length};
}

Flaw find_flaw(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        const auto [code, length] = first_character(text.substr(at));
        if (length == 0) {
            return {"not UTF-8", at};
        }
        if (code == 0) {
            return {"a NUL byte", at};
        }
        const bool blank = code == '\t' || code == '\n' || code == '\r';
        if ((code < ' ' && !blank) || code == 0xFFFE || code == 0xFFFF) {
            return {"a character that XML forbids", at};
        }
        at += length;
    }
    return {nullptr, text.size()};
}

int line_of(std::string_view text, std::size_t offset)
{
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + offset, '\n'));
}

/// The XML declaration, as far as it goes before its "?>"; empty without one.
std::string_view find_declaration(std::string_view text)
{
    constexpr std::string_view open = "<?xml";
    if (text.substr(0, byte_order_mark.size()) == byte_order_mark) {
        text.remove_prefix(byte_order_mark.size());
    }
    const bool present = text.substr(0, open.size()) == open &&
                         text.find_first_of(" \t\r\n", open.size()) == open.size();
    return present ? text.substr(0, text.find("?>")) : std::string_view();
}

/// The encoding that an XML declaration names; empty when it names none. May be anything when the
/// declaration is malformed, which is the parser's to refuse.
std::string_view find_encoding(std::string_view declaration)
{
    const std::size_t open = declaration.find_first_of("\"'", declaration.find("encoding"));
    if (open == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = declaration.substr(open + 1);
    return rest.substr(0, rest.find(declaration[open]));
}

// ---- Document ---------------------------------------------------------------------------------

/// A parsed file. Nodes and lists share it with their document, so they stay usable when the
/// document loads another one.
struct Tree {
    std::string file;
    xml_ptr<xmlDoc> document;
    bool has_byte_order_mark = false;
    bool has_declaration = false;
    std::string encoding; // to declare when saving
    /// Content that setValue replaced. Kept, because nodes and lists may still refer to it.
    std::vector<xml_ptr<xmlNode>> removed;

    [[noreturn]] void fail(const char* reason) const { throw CLiteXmlException(file, 0, reason); }

    /// A caller's text, once it is known to fit into a document.
    const xmlChar* checked(const char* text) const
    {
        if (text == nullptr) {
            fail("no text");
        }
        if (const char* reason = find_flaw(text).reason) {
            fail(reason);
        }
        return to_xml(text);
    }
};

using TreePtr = std::shared_ptr<Tree>;

/// One run of the parser. It keeps the first reason why the text is no document.
class Parser
{
public:
    Parser() : m_parser(allocated(xmlNewParserCtxt()))
    {
        m_parser->_private = this;
        m_parser->sax->internalSubset = [](void* context, auto...) {
            auto* const parser = static_cast<xmlParserCtxt*>(context);
            refuse(parser, xmlSAX2GetLineNumber(parser), "a document type declaration");
            xmlStopParser(parser);
        };
        m_parser->sax->serror = [](void* context, auto* error) {
            if (error->level == XML_ERR_FATAL) {
                refuse(static_cast<xmlParserCtxt*>(context), error->line, error->message);
            }
        };
    }

    xml_ptr<xmlDoc> parse(const char* path, const std::string& text)
    {
        static_assert(max_file_size <= INT_MAX);
        xml_ptr<xmlDoc> document(
            xmlCtxtReadMemory(m_parser.get(), text.data(), static_cast<int>(text.size()), nullptr,
                              nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
        m_trap.require_memory();
        if (m_refused || document == nullptr || xmlDocGetRootElement(document.get()) == nullptr) {
            throw CLiteXmlException(path, m_line, m_reason.empty() ? "malformed" : m_reason);
        }
        return document;
    }

private:
    static void refuse(xmlParserCtxt* parser, int line, const char* reason) noexcept
    {
        auto* const self = static_cast<Parser*>(parser->_private);
        if (self->m_refused) {
            return;
        }
        self->m_refused = true;
        self->m_line = line;
        try {
            self->m_reason = reason == nullptr ? "" : reason;
        } catch (const std::bad_alloc&) { // then without the reason: libxml2 must not be unwound
        }
    }

    ErrorTrap m_trap;
    xml_ptr<xmlParserCtxt> m_parser;
    bool m_refused = false;
    int m_line = 0;
    std::string m_reason;
};

TreePtr load_tree(const char* path, const std::string& text)
{
    if (text.empty()) {
        throw CLiteXmlException(path, 0, "the file is empty");
    }
    if (const Flaw flaw = find_flaw(text); flaw.reason != nullptr) {
        throw CLiteXmlException(path, line_of(text, flaw.offset), flaw.reason);
    }
    const std::string_view declaration = find_declaration(text);
    const std::string encoding(find_encoding(declaration));
    const auto is = [&](const char* name) { return strcasecmp(encoding.c_str(), name) == 0; };
    const bool ascii = is("US-ASCII") || is("ASCII");
    if (!encoding.empty() && !ascii && !is("UTF-8")) {
        throw CLiteXmlException(path, 1, "encoding " + encoding + " instead of UTF-8");
    }
    // The parser may take other characters for the end of the text.
    const auto other = std::find_if(text.begin(), text.end(),
                                    [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
    if (ascii && other != text.end()) {
        const auto offset = static_cast<std::size_t>(other - text.begin());
        throw CLiteXmlException(path, line_of(text, offset), "not ASCII, as it declares");
    }

    auto tree = std::make_shared<Tree>();
    tree->file = path;
    tree->document = Parser().parse(path, text);
    tree->has_byte_order_mark = text.compare(0, byte_order_mark.size(), byte_order_mark) == 0;
    tree->has_declaration = !declaration.empty();
    tree->encoding = is("UTF-8") ? encoding : "UTF-8";
    // Numbers the elements once; without it libxml2 counts siblings whenever it sorts a result.
    xmlXPathOrderDocElems(tree->document.get());
    return tree;
}

std::string serialise(const char* path, const Tree& tree)
{
    const ErrorTrap trap;
    const xml_ptr<xmlBuffer> buffer(allocated(xmlBufferCreate()));
    xmlSaveCtxt* const writer = allocated(xmlSaveToBuffer(
        buffer.get(), tree.encoding.c_str(), tree.has_declaration ? 0 : XML_SAVE_NO_DECL));
    const bool written = xmlSaveDoc(writer, tree.document.get()) != -1;
    const bool flushed = xmlSaveClose(writer) != -1;
    trap.require_memory();
    if (!written || !flushed) {
        throw CLiteXmlException(path, 0, "cannot write the document as text");
    }
    std::string text(tree.has_byte_order_mark ? byte_order_mark : std::string_view());
    return text.append(to_chars(xmlBufferContent(buffer.get())),
                       static_cast<std::size_t>(xmlBufferLength(buffer.get())));
}

// ---- Nodes ------------------------------------------------------------------------------------

IXmlNode* new_node(const TreePtr& tree, xmlNode* node);

std::string text_of(xmlNode* node)
{
    const xmlNode* const child = node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE
                                     ? node->children
                                     : nullptr;
    if (child != nullptr && child->next == nullptr && child->type == XML_TEXT_NODE) {
        return to_chars(child->content); // the usual case, without another copy
    }
    const ErrorTrap trap;
    const xml_ptr<xmlChar> text(allocated(xmlNodeGetContent(node)));
    trap.require_memory();
    return to_chars(text.get());
}

/// Gives an attribute a value, or makes it; `old` is the attribute, or null if the element has
/// none.
xmlAttr* set_attribute(const Tree& tree, xmlAttr* old, xmlNode* element, xmlNs* space,
                       const xmlChar* name, const char* value)
{
    const xmlChar* const text = tree.checked(value);
    // Most of what a listing writes is there already: comparing is cheaper than writing.
    const xmlNode* const content = old == nullptr ? nullptr : old->children;
    if (content != nullptr && content->next == nullptr &&
        xmlStrEqual(content->content, text) == 1) {
        return old;
    }
    if (old != nullptr &&
        xmlHasNsProp(element, name, space == nullptr ? nullptr : space->href) != old) {
        tree.fail("the attribute stands twice in its element"); // by two prefixes of one name space
    }
    const ErrorTrap trap;
    xmlAttr* const attribute = allocated(xmlSetNsProp(element, space, name, text));
    allocated(attribute->name);
    trap.require_memory();
    return attribute;
}

void set_content(Tree& tree, xmlNode* element, const char* value)
{
    const xmlChar* const text = tree.checked(value);
    const ErrorTrap trap;
    xml_ptr<xmlNode> content(allocated(xmlNewDocText(tree.document.get(), text)));
    trap.require_memory();
    while (xmlNode* const child = element->children) {
        tree.removed.emplace_back(child);
        xmlUnlinkNode(child);
    }
    if (*text != 0) { // an empty text would be written as <a></a> and read back as none
        allocated(xmlAddChild(element, content.get()));
        content.release();
    }
}

std::vector<xmlNode*> select(const Tree& tree, xmlNode* context, const char* xpath)
{
    const xmlChar* const expression = tree.checked(xpath);
    const ErrorTrap trap;
    const xml_ptr<xmlXPathContext> evaluation(allocated(xmlXPathNewContext(tree.document.get())));
    evaluation->node = context;
    const xml_ptr<xmlXPathObject> result(xmlXPathEval(expression, evaluation.get()));
    trap.require_memory();
    if (result == nullptr) {
        tree.fail("the XPath expression cannot be evaluated");
    }
    if (result->type != XPATH_NODESET) {
        tree.fail("the XPath expression does not select nodes");
    }
    const xmlNodeSet* const set = result->nodesetval;
    if (set == nullptr || set->nodeNr == 0) {
        return {};
    }
    std::vector<xmlNode*> nodes(set->nodeTab, set->nodeTab + set->nodeNr);
    for (const xmlNode* node : nodes) {
        if (node->type == XML_NAMESPACE_DECL) { // a copy that ends with the result
            tree.fail("the XPath expression selects name spaces");
        }
    }
    return nodes;
}

class NodeList final : public IXmlNodeList
{
public:
    NodeList(TreePtr tree, std::vector<xmlNode*> nodes)
        : m_tree(std::move(tree)), m_nodes(std::move(nodes))
    {
    }

    IXmlNode* item(int position) override
    {
        if (position < 0 || position >= count()) {
            m_tree->fail("no such position in the list");
        }
        return new_node(m_tree, m_nodes[static_cast<std::size_t>(position)]);
    }
    int count() override { return static_cast<int>(m_nodes.size()); }
    void release() override { delete this; }

private:
    TreePtr m_tree;
    std::vector<xmlNode*> m_nodes;
};

IXmlNodeList* select_list(const TreePtr& tree, xmlNode* context, const char* xpath)
{
    return new NodeList(tree, select(*tree, context, xpath));
}

IXmlNode* select_first(const TreePtr& tree, xmlNode* context, const char* xpath)
{
    const std::vector<xmlNode*> nodes = select(*tree, context, xpath);
    return nodes.empty() ? nullptr : new_node(tree, nodes.front());
}

/// An attribute, present or not, as its element gives it out. Belongs to the element's Node.
class Attribute final : public IXmlNode
{
public:
    /// The tree's pointer is borrowed from the Node.
    Attribute(const TreePtr& tree, xmlNode* element, const char* name)
        : m_tree(tree), m_element(element), m_name(name)
    {
    }

    const std::string& name() const { return m_name; }

    IXmlNode* attribute(const char*) override { m_tree->fail("an attribute has no attributes"); }
    std::string value() override
    {
        return find() ? text_of(reinterpret_cast<xmlNode*>(m_attribute)) : std::string();
    }
    void setValue(const char* text) override
    {
        // An attribute that libxml2 would make without question, but not read back as one.
        if (!find() && (find_flaw(m_name).reason != nullptr || m_name == "xmlns" ||
                        xmlValidateNCName(to_xml(m_name.c_str()), 0) != 0)) {
            m_tree->fail("no name for an attribute");
        }
        m_attribute =
            set_attribute(*m_tree, m_attribute, m_element, nullptr, to_xml(m_name.c_str()), text);
    }
    IXmlNodeList* selectNodes(const char* xpath) override
    {
        return select_list(m_tree, context(), xpath);
    }
    IXmlNode* selectSingleNode(const char* xpath) override
    {
        return select_first(m_tree, context(), xpath);
    }
    void release() override {}

private:
    /// Whether the attribute is there; another wrapper of the element may have made it. Once there
    /// it stays.
    bool find()
    {
        if (m_attribute == nullptr) {
            m_attribute = xmlHasNsProp(m_element, to_xml(m_name.c_str()), nullptr);
        }
        return m_attribute != nullptr;
    }
    xmlNode* context()
    {
        if (!find()) {
            m_tree->fail("the attribute does not exist");
        }
        return reinterpret_cast<xmlNode*>(m_attribute);
    }

    const TreePtr& m_tree;
    xmlNode* m_element;
    xmlAttr* m_attribute = nullptr;
    std::string m_name;
};

/// A node that the caller owns: an element, or whatever else an expression selected.
class Node final : public IXmlNode
{
public:
    Node(TreePtr tree, xmlNode* node) : m_tree(std::move(tree)), m_node(node) {}

    IXmlNode* attribute(const char* name) override
    {
        if (m_node->type != XML_ELEMENT_NODE) {
            m_tree->fail("only an element has attributes");
        }
        if (name == nullptr) {
            m_tree->fail("no name for an attribute");
        }
        for (Attribute& known : m_attributes) {
            if (known.name() == name) {
                return &known;
            }
        }
        return &m_attributes.emplace_front(m_tree, m_node, name);
    }
    std::string value() override { return text_of(m_node); }
    void setValue(const char* text) override
    {
        if (m_node->type == XML_ELEMENT_NODE) {
            set_content(*m_tree, m_node, text);
        } else if (m_node->type == XML_ATTRIBUTE_NODE) {
            auto* const attribute = reinterpret_cast<xmlAttr*>(m_node);
            set_attribute(*m_tree, attribute, m_node->parent, attribute->ns, m_node->name, text);
        } else {
            m_tree->fail("only an element or an attribute takes a value");
        }
    }
    IXmlNodeList* selectNodes(const char* xpath) override
    {
        return select_list(m_tree, m_node, xpath);
    }
    IXmlNode* selectSingleNode(const char* xpath) override
    {
        return select_first(m_tree, m_node, xpath);
    }
    void release() override { delete this; }

private:
    TreePtr m_tree;
    xmlNode* m_node;
    std::forward_list<Attribute> m_attributes;
};

IXmlNode* new_node(const TreePtr& tree, xmlNode* node)
{
    return new Node(tree, node);
}

class Document final : public IXmlDocument
{
public:
    void load(const char* path) override
    {
        m_tree = nullptr;
        m_tree = load_tree(path, m_file.load(path == nullptr ? "" : path));
    }
    IXmlNode* root() override
    {
        return new_node(loaded(""), xmlDocGetRootElement(loaded("")->document.get()));
    }
    void save(const char* path) override
    {
        const char* const name = path == nullptr ? "" : path;
        m_file.save(name, serialise(name, *loaded(name)));
    }
    void release() override { delete this; }

private:
    const TreePtr& loaded(const char* path) const
    {
        if (m_tree == nullptr) {
            throw CLiteXmlException(path, 0, "no document is loaded");
        }
        return m_tree;
    }

    AtomicFile m_file;
    TreePtr m_tree;
};

} // namespace

IXmlDocument* new_xml_document()
{
    // Once, before any thread parses; the later calls of libxml2's own do nothing.
    [[maybe_unused]] static const bool initialised = (xmlInitParser(), true);
    return new Document;
}

} // namespace fwbase
