// The reference host's XML layer and how it replaces files.
#include "framework/owned.h"
#include "host/xml_document.h"
#include "tests/workspace.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
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

    owned<IXmlDocument> m_document{host::new_xml_document()};
    owned<IXmlNode> m_root;
};

TEST_F(XmlTest, RefusesWhatIsNoDocument)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    write("large", "<r/>");
    ASSERT_EQ(truncate("large", (16 << 20) + 1), 0);
    for (const char* path :
         {"", "missing", "bin", "pipe", "large", static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(m_document->load(path), CLiteXmlException);
    }
    string deep;
    for (int depth = 0; depth < 3000; ++depth) {
        deep += "<a>";
    }
    const struct {
        string text;
        int line;
        const char* reason;
    } table[] = {{"", 0, "empty"},
                 {"<r>\n\n<a>", 3, "Premature end"},
                 {"<r/>\n<r/>", 2, "Extra content"},
                 {"<r>\n<a></b>\n\n</r>", 2, "mismatch"},
                 {"<r a='1'\na='2'/>", 2, "redefined"},
                 {"<r>\n&x;</r>", 2, "not defined"},
                 {"\n<!DOCTYPE r SYSTEM 'r.dtd'><r/>", 2, "document type"},
                 {"<!DOCTYPE r [<!ENTITY a 'x'>]><r>&a;</r>", 1, "document type"},
                 {deep, 1, "depth"},
                 {"<r>\n\n\xE0\x80\xAF</r>", 3, "not UTF-8"},
                 {"<r>\n\xED\xA0\x80</r>", 2, "not UTF-8"},
                 {"<r>\xE4\xB8", 1, "not UTF-8"},
                 {string("<r>\n\0</r>", 9), 2, "NUL"},
                 {"<r>\x0B</r>", 1, "forbids"},
                 {"<?xml version='1.0' encoding = 'GBK'?><r/>", 1, "GBK"},
                 {"<?xml version='1.0' encoding='ascii'?>\n<r/><!--中-->", 2, "not ASCII"}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.text.substr(0, 60));
        load("<old/>");
        try {
            write("conf.xml", row.text);
            m_document->load("conf.xml");
            ADD_FAILURE();
        } catch (const CLiteXmlException& error) {
            const string line = row.line == 0 ? "" : ":" + std::to_string(row.line);
            EXPECT_EQ(error.what(), "conf.xml" + line + ": " + error.reason());
            EXPECT_THAT(error.reason(), testing::HasSubstr(row.reason));
        }
        EXPECT_THROW(m_document->save("conf.xml"), CLiteXmlException);
        EXPECT_EQ(m_root->value(), ""); // of the document before
    }
    EXPECT_STREQ(CLiteXmlException("", 3, " a\n b\n").what(), "3: a b");
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
    const string bom = "\xEF\xBB\xBF";
    for (const string& head : {string(), declaration, lower, bom, bom + declaration}) {
        load(head + body);
        EXPECT_EQ(saved(), head + body);
    }
    for (const string head :
         {"<?xml version='1.0'?>", "<?xml version='1.0' encoding='Us-Ascii'?>"}) {
        load(head + "<r  a = 'x'><b></b>&#x4E2D;</r>");
        EXPECT_EQ(saved(), declaration + "<r a=\"x\"><b/>中</r>\n");
    }
}

TEST_F(XmlTest, TextComesBackAsItWentIn)
{
    for (const string text :
         {"", "a", "&amp;<b/>]]>&#65;", "\"'", "中文", " \t\r\n ", "\xF4\x8F\xBF\xBF"}) {
        IXmlNode& root = load("<r a='1'><b>x</b></r>");
        for (IXmlNode* const node : {&root, root.attribute("a"), root.attribute("new")}) {
            node->setValue(text.c_str());
        }
        const string once = saved();
        IXmlNode& again = load(once);
        for (IXmlNode* const node : {&again, again.attribute("a"), again.attribute("new")}) {
            EXPECT_EQ(node->value(), text);
        }
        EXPECT_EQ(saved(), once);
    }
    IXmlNode& root = load("<r a='1'>x</r>");
    for (const char* text :
         {"\x01", "\x1F", "\xEF\xBF\xBE", "\xFF", static_cast<const char*>(nullptr)}) {
        for (IXmlNode* const node : {&root, root.attribute("a"), root.attribute("new")}) {
            EXPECT_THROW(node->setValue(text), CLiteXmlException);
        }
    }
    EXPECT_EQ(saved(), "<r a=\"1\">x</r>\n");
}

TEST_F(XmlTest, AttributesAndSelections)
{
    IXmlNode& root = load("<r xmlns:p='u' p:id='p' b='&amp;lt;'><a/>1<!--c-->2<b>x</b></r>");
    IXmlNode* const id = root.attribute("id");
    owned<IXmlNode>(m_document->root())->attribute("id")->setValue("1"); // of a twin
    EXPECT_EQ(id->value() + root.attribute("b")->value(), "1&lt;");
    owned<IXmlNode>(root.selectSingleNode("@*[. = 'p']"))->setValue("q");
    for (const char* name : {"", "a b", "1", "p:x", "xmlns", "a\xFF"}) {
        EXPECT_THROW(root.attribute(name)->setValue("v"), CLiteXmlException) << name;
    }
    EXPECT_THROW(root.attribute(nullptr), CLiteXmlException);

    const owned<IXmlNodeList> list(root.selectNodes("//b | //comment() | @id | ."));
    string values;
    for (int i = 0; i < list->count(); ++i) {
        values += owned<IXmlNode>(list->item(i))->value() + ",";
    }
    EXPECT_EQ(values, "12x,1,c,x,"); // in document order
    EXPECT_THROW(list->item(-1), CLiteXmlException);
    EXPECT_THROW(list->item(list->count()), CLiteXmlException);
    EXPECT_THROW(owned<IXmlNode>(list->item(2))->setValue("x"), CLiteXmlException);
    EXPECT_EQ(root.selectSingleNode("//none"), nullptr);
    testing::internal::CaptureStderr();
    for (const char* xpath : {"", "a[", "1 + 1", "$x", "p:a", "f(a)", "\xFF", "//namespace::*",
                              static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(root.selectNodes(xpath), CLiteXmlException);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(saved(), "<r xmlns:p=\"u\" p:id=\"q\" b=\"&amp;lt;\" id=\"1\">"
                       "<a/>1<!--c-->2<b>x</b></r>\n");
    root.setValue("y");
    EXPECT_EQ(owned<IXmlNode>(list->item(3))->value(), "x"); // though no longer in the document
}

TEST_F(XmlTest, FailedSaveLeavesTheOldFile)
{
    load("<r>" + string(200000, 'x') + "</r>");
    write("conf.xml", "old");
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* path : {"dangling", "pipe", ".", "/", "none/conf.xml", "conf.xml/", "", "new/",
                             static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(m_document->save(path), CLiteXmlException) << path;
    }
    EXPECT_EQ(access("nowhere", F_OK), -1);

    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small = {65536, limit.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THROW(m_document->save("conf.xml"), CLiteXmlException);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(access(".conf.xml.tmp", F_OK), -1);

    for (const bool folder : {true, false}) { // or a pipe, in the temporary file's place
        ASSERT_EQ(folder ? mkdir(".conf.xml.tmp", 0) : mkfifo(".conf.xml.tmp", 0600), 0);
        EXPECT_THROW(m_document->save("conf.xml"), CLiteXmlException);
        EXPECT_EQ(remove(".conf.xml.tmp"), 0);
    }
    EXPECT_EQ(read("conf.xml"), "old");
}

TEST_F(XmlTest, SaveKeepsModeAndOwnerAndFollowsLinks)
{
    load("<r/>");
    const bool root = geteuid() == 0;
    ASSERT_EQ(rename("conf.xml", "bin/file"), 0);
    ASSERT_EQ(chmod("bin/file", 0664), 0);
    ASSERT_TRUE(!root || chown("bin/file", 1, 2) == 0);
    ASSERT_EQ(symlink("bin/file", "conf.xml"), 0);
    // Left by a save that was killed. Its other name must not be written through.
    write("victim", "keep");
    ASSERT_EQ(link("victim", "bin/.file.tmp"), 0);

    m_root->setValue("new");
    EXPECT_EQ(saved(), "<r>new</r>\n");
    struct stat status = {};
    ASSERT_EQ(lstat("conf.xml", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(lstat("bin/file", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0664U);
    EXPECT_TRUE(!root || (status.st_uid == 1 && status.st_gid == 2));
    EXPECT_EQ(access("bin/.file.tmp", F_OK), -1);
    EXPECT_EQ(read("victim"), "keep");

    const mode_t mask = umask(027);
    m_document->save("made");
    umask(mask);
    ASSERT_EQ(stat("made", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
}

TEST_F(XmlTest, SavesAtOnceNeverMix)
{
    const string texts[] = {string(500, 'a'), string(5000, 'b'), string(50000, 'c')};
    load("<r/>");
    std::vector<std::thread> savers;
    for (const string& text : texts) {
        savers.emplace_back([&text] {
            const owned<IXmlDocument> own(host::new_xml_document());
            own->load("conf.xml");
            owned<IXmlNode>(own->root())->setValue(text.c_str());
            for (int i = 0; i < 50; ++i) {
                EXPECT_NO_THROW(own->save("conf.xml"));
                const owned<IXmlDocument> last(host::new_xml_document());
                EXPECT_NO_THROW(last->load("conf.xml"));
            }
        });
    }
    for (std::thread& saver : savers) {
        saver.join();
    }
    m_document->load("conf.xml");
    EXPECT_THAT(texts, testing::Contains(owned<IXmlNode>(m_document->root())->value()));
    EXPECT_EQ(access(".conf.xml.tmp", F_OK), -1);
}

} // namespace
