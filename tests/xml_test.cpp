// The reference host's XML layer and how it replaces files.
#include "framework/owned.h"
#include "fwbase/xml_document.h"
#include "tests/workspace.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using std::string;

class XmlTest : public Workspace
{
protected:
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
};

TEST_F(XmlTest, RefusesWhatIsNoDocument)
{
    const struct {
        string text;
        int line;
        const char* reason;
    } table[] = {{"", 0, "empty"},
                 {string((16 << 20) + 1, ' '), 0, "larger"},
                 {"<r>\n\n<a>", 3, "Premature end"},
                 {"\n<!DOCTYPE r [<!ENTITY a 'x'>]><r>&a;</r>", 2, "document type"},
                 {"<r>\n\n\xE0\x80\xAF</r>", 3, "not UTF-8"},
                 {"<r>\n\xED\xA0\x80</r>", 2, "not UTF-8"},
                 {"<r>\xE4\xB8", 1, "not UTF-8"},
                 {string("<r>\n\0</r>", 9), 2, "NUL"},
                 {"<r>\x0B</r>", 1, "forbids"},
                 {"<?xml version='1.0' encoding = 'GBK'?><r/>", 1, "GBK"},
                 {"<?xml version='1.0' encoding='ascii'?>\n<r/><!--中-->", 2, "not ASCII"}};
    for (const auto& row : table) {
        load("<old/>");
        try {
            load(row.text);
            ADD_FAILURE() << row.reason;
        } catch (const CLiteXmlException& error) {
            const string line = row.line == 0 ? "" : ":" + std::to_string(row.line);
            EXPECT_THAT(error.what(), testing::StartsWith("conf.xml" + line + ": "));
            EXPECT_THAT(error.what(), testing::HasSubstr(row.reason));
        }
        EXPECT_THROW(saved(), CLiteXmlException);
    }
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* path : {"", "missing", "bin", "pipe"}) {
        EXPECT_THROW(m_document->load(path), CLiteXmlException);
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
    const auto nodes = [&] {
        return std::vector{root, root->attribute("a"), root->attribute("n")};
    };
    for (const string text :
         {"a", "&amp;<b/>]]>&#65;", "\"'", "中文", " \t\r\n ", "\xF4\x8F\xBF\xBF", ""}) {
        for (IXmlNode* const node : nodes()) {
            node->setValue(text.c_str());
        }
        const string once = saved();
        root = &load(once);
        for (IXmlNode* const node : nodes()) {
            EXPECT_EQ(node->value(), text);
            for (const char* bad : {"\x01", "\xEF\xBF\xBE", "\xFF"}) {
                EXPECT_THROW(node->setValue(bad), CLiteXmlException);
            }
            EXPECT_THROW(node->setValue(nullptr), CLiteXmlException);
        }
        EXPECT_EQ(saved(), once);
    }
}

TEST_F(XmlTest, AttributesAndSelections)
{
    IXmlNode& root = load("<r xmlns:p='u' p:id='p'><b>x</b></r>");
    IXmlNode* const id = root.attribute("id");
    owned<IXmlNode>(m_document->root())->attribute("id")->setValue("1"); // of a twin
    EXPECT_EQ(id->value(), "1");
    for (const char* name : {"", "a b", "1", "p:x", "xmlns"}) {
        EXPECT_THROW(root.attribute(name)->setValue("v"), CLiteXmlException) << name;
    }
    testing::internal::CaptureStderr();
    EXPECT_THROW(root.selectNodes("a["), CLiteXmlException);
    EXPECT_THROW(root.selectNodes("//namespace::*"), CLiteXmlException);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const owned<IXmlNodeList> list(root.selectNodes("//b | @id"));
    EXPECT_THROW(list->item(2), CLiteXmlException);
    root.setValue("y");
    EXPECT_EQ(owned<IXmlNode>(list->item(1))->value(), "x"); // though no longer in the document
    EXPECT_EQ(saved(), "<r xmlns:p=\"u\" p:id=\"p\" id=\"1\">y</r>\n");
}

} // namespace
