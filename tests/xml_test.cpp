// The XML library of the reference host, and how it replaces files.
#include "framework/owned.h"
#include "fwbase/reply.h"
#include "fwbase/xml_document.h"
#include "tests/workspace.h"

#include <cstdlib>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <thread>

using std::string;

/// Has error handlers for libxml2, as a host may have. They must not be called or lost.
class XmlTest : public Workspace
{
protected:
    static void print(void*, const char* text, ...) { FAIL() << text; }

    XmlTest()
    {
        xmlSetStructuredErrorFunc(&m_document, m_handler);
        xmlSetGenericErrorFunc(&m_root, print);
    }
    ~XmlTest() override
    {
        EXPECT_EQ(xmlStructuredError, m_handler);
        EXPECT_EQ(xmlStructuredErrorContext, &m_document);
        EXPECT_EQ(xmlGenericError, print);
        EXPECT_EQ(xmlGenericErrorContext, &m_root);
    }
    IXmlNode& load(const string& text)
    {
        write("conf.xml", text);
        m_root.reset();
        m_document->load("conf.xml");
        m_root.reset(m_document->root());
        return *m_root;
    }
    string saved()
    {
        m_document->save("conf.xml");
        return read("conf.xml");
    }

    owned<IXmlDocument> m_document{fwbase::new_xml_document()};
    owned<IXmlNode> m_root;
    const xmlStructuredErrorFunc m_handler = [](void*, auto error) { FAIL() << error->message; };
};

static auto throws(const string& pattern)
{
    return testing::ThrowsMessage<CLiteXmlException>(testing::ContainsRegex(pattern));
}

TEST_F(XmlTest, RefusesWhatIsNoDocument)
{
    const std::pair<string, const char*> table[] = {
        {"", ":1: .*empty"},
        {string((16 << 20) + 1, ' '), ": .*larger"},
        {"<p:r>\n\n<a>", ":3: .*Premature end"}, // not the prefix, which is no fatal error
        {"<r>\n<a></b>\n", ":2: .*mismatch"},    // nor what follows from it
        {"\n<!DOCTYPE r [<!ENTITY a 'x'>]><r>&a;</r>", ":2: .*document type"},
        {"<r>\n\n\xE0\x80\xAF</r>", ":3: not UTF-8"},
        {"<r>\x90\x80</r>", ":1: not UTF-8"},
        {string("<r>\n\0</r>", 9), ":2: .*NUL"},
        {"<r>\x0B</r>", ":1: .*XML does not allow"},
        {"<?xml version='1.0' encoding = 'GBK'?><r/>", ":1: .*GBK"},
        {"\xEF\xBB\xBF<?xml version='1.0' encoding='GBK'?><r/>", ":1: .*GBK"},
        {"<?xml version='1.0' encoding='ascii'?>\n<r/>\n中", ":1: .*(ascii|encoding)"}};
    for (const auto& row : table) {
        load("<old/>");
        EXPECT_THAT([&] { load(row.first); }, throws(string("^conf.xml") + row.second));
        EXPECT_THROW(saved(), CLiteXmlException) << row.second;
    }
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const string path : {"", "missing", "bin", "pipe", "/proc/self/stat"}) {
        const char* const reason = path[0] == '/' ? ": changed" : "(: not|.*cannot open)";
        EXPECT_THAT([&] { m_document->load(path.c_str()); }, throws('^' + path + reason));
    }
}

TEST_F(XmlTest, SavingKeepsWhatWasNotTouched)
{
    const string body =
        "<!-- 前 -->\n<?note of mine?>\n"
        "<r xmlns:p=\"u\" z=\"中&#10;&quot;'\" a=\"\" p:id=\"1\" id=\"2\">\n\n\t<odd/>"
        "<![CDATA[<&>]]> 文 &amp;&lt;&gt; \xF0\x9F\x98\x80&#13;<e xml:lang=\"zh\"> </e>"
        "<?in side?><!--c--><p:q p:w=\"\"/>\n</r>\n<!-- after -->\n";
    const string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const string lower = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n";
    for (const string& head : {string(), declaration, lower, "\xEF\xBB\xBF" + declaration}) {
        load(head + body);
        EXPECT_EQ(saved(), head + body);
    }
    load("<?xml version='1.0' encoding='Us-Ascii'?><r  a = 'x'><b></b>&#x4E2D;</r>");
    EXPECT_EQ(saved(), declaration + "<r a=\"x\"><b/>中</r>\n");
}

TEST_F(XmlTest, TextComesBackAsItWentIn)
{
    IXmlNode* root = &load("<r a='1'><b>x</b></r>");
    const auto all = [&] { return std::vector{root, root->attribute("a"), root->attribute("n")}; };
    for (const string text :
         {"a", "ab", "&amp;<b/>]]>&#65;", "\"'", "中文", " \t\r\n ", "\xF4\x8F\xBF\xBF", ""}) {
        for (IXmlNode* const node : all()) {
            for (const char* bad : {"\x01", "\xEF\xBF\xBE", "\xFF"}) {
                EXPECT_THROW(node->setValue(bad), CLiteXmlException) << bad;
            }
            EXPECT_THROW(node->setValue(nullptr), CLiteXmlException);
            node->setValue(text.c_str());
        }
        const string once = saved();
        root = &load(once);
        for (IXmlNode* const node : all()) {
            EXPECT_EQ(node->value(), text);
        }
        EXPECT_EQ(saved(), once);
    }
}

TEST_F(XmlTest, AttributesAndSelections)
{
    IXmlNode& root = load("<r xmlns:p='u' p:id='p'><b xml:id='x'>x<!--c-->y</b></r>");
    IXmlNode* const id = root.attribute("id");
    owned<IXmlNode>(m_document->root())->attribute("id")->setValue("1"); // of a twin
    EXPECT_EQ(id->value(), "1");
    EXPECT_EQ(root.value(), "xy");
    for (const char* name : {"", "i d", "1", "p:x", "xmlns", "\xFF"}) {
        EXPECT_THROW(root.attribute(name)->setValue("v"), CLiteXmlException) << name;
    }
    for (const char* xpath : {"a[", "//namespace::*", "//comment()", "count(//b)", "\xFF"}) {
        EXPECT_THROW(root.selectNodes(xpath), CLiteXmlException) << xpath;
    }
    EXPECT_THROW(id->selectSingleNode("."), CLiteXmlException);
    const owned<IXmlNodeList> list(root.selectNodes("//b | @id"));
    EXPECT_EQ(owned<IXmlNode>(list->item(1))->value(), "xy");
    EXPECT_THROW(list->item(2), CLiteXmlException);
    owned<IXmlNode>(root.selectSingleNode("b/@xml:id"))->setValue("z");
    root.setValue("y");
    EXPECT_EQ(root.selectSingleNode("id('x')"), nullptr); // it was released with the old content
    EXPECT_EQ(saved(), "<r xmlns:p=\"u\" p:id=\"p\" id=\"1\">y</r>\n");
}

TEST(XmlErrorTest, IsKeptOnceForItsThread)
{
    const CLiteXmlException error("file", 1, " an \n old reason\t");
    std::thread([] { EXPECT_EQ(fwbase::take_last_xml_error(), ""); }).join();
    EXPECT_EQ(fwbase::take_last_xml_error(), "file:1: an old reason");
    EXPECT_EQ(fwbase::take_last_xml_error(), "");
    const auto fail_at_exit = [&error] {
        CLiteXmlException(error.what(), 2, "");
        std::atexit([] { CLiteXmlException("", 0, string(99, 'x')); });
        std::exit(0);
    };
    EXPECT_EXIT(fail_at_exit(), testing::ExitedWithCode(0), "");
}
