#include "framework/owned.h"
#include "host/xml_document.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

using std::string;

string repeat(const string& text, int count)
{
    string all;
    while (count-- > 0) {
        all += text;
    }
    return all;
}

/// Works in a folder of its own, which is the current one and is removed afterwards.
class XmlTest : public testing::Test
{
protected:
    XmlTest()
    {
        EXPECT_NE(mkdtemp(m_folder.data()), nullptr);
        EXPECT_EQ(chdir(m_folder.c_str()), 0);
    }
    ~XmlTest() override
    {
        EXPECT_EQ(fchdir(m_before), 0);
        close(m_before);
        EXPECT_EQ(std::system(("rm -r " + m_folder).c_str()), 0);
    }

    static void put(const string& text) { std::ofstream("conf.xml") << text; }
    static string get()
    {
        std::ifstream file("conf.xml");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    IXmlNode& load(const string& text)
    {
        put(text);
        m_root.reset();
        m_document->load("conf.xml");
        m_root.reset(m_document->root());
        return *m_root;
    }
    string saved()
    {
        m_document->save("conf.xml");
        return get();
    }

    const int m_before = open(".", O_RDONLY | O_CLOEXEC);
    string m_folder = "/tmp/xml_test.XXXXXX";
    owned<IXmlDocument> m_document{host::new_xml_document()};
    owned<IXmlNode> m_root;
};

TEST_F(XmlTest, RefusesWhatIsNoDocument)
{
    ASSERT_EQ(mkdir("folder", 0700), 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::ofstream("large") << "<r/>";
    ASSERT_EQ(truncate("large", (16 << 20) + 1), 0);
    const auto line = [](int n) { return repeat("\n", n - 1); };
    const struct {
        const char* path; // conf.xml holds the text
        string text;
        int line;
        string reason;
    } cases[] = {
        {nullptr, "", 0, "no file name"},
        {"", "", 0, "no file name"},
        {"missing", "", 0, "No such file"},
        {"folder", "", 0, "not a regular file"},
        {"pipe", "", 0, "not a regular file"},
        {"large", "", 0, "larger than 16 MiB"},
        {"conf.xml", "", 0, "empty"},
        {"conf.xml", "<r>" + line(3) + "<a>", 3, "Premature end"},
        {"conf.xml", "<r/>" + line(2) + "<r/>", 2, "Extra content"},
        {"conf.xml", "<r>" + line(2) + "<a></b>" + line(3) + "</r>", 2, "mismatch"},
        {"conf.xml", "<r a='1'" + line(2) + "a='2'/>", 2, "redefined"},
        {"conf.xml", "<r>" + line(2) + "&x;</r>", 2, "not defined"},
        {"conf.xml", line(2) + "<!DOCTYPE r SYSTEM 'r.dtd'><r/>", 2, "document type"},
        {"conf.xml", "<!DOCTYPE r [<!ENTITY a 'x'>]><r>&a;</r>", 1, "document type"},
        {"conf.xml", repeat("<a>", 3000) + repeat("</a>", 3000), 1, "depth"},
        {"conf.xml", "<r>" + line(3) + "\xE0\x80\xAF</r>", 3, "not UTF-8"},
        {"conf.xml", "<r>" + line(2) + "\xED\xA0\x80</r>", 2, "not UTF-8"},
        {"conf.xml", "<r>\xE4\xB8", 1, "not UTF-8"},
        {"conf.xml", "<r>" + line(3) + string(1, '\0') + "</r>", 3, "NUL"},
        {"conf.xml", "<r>\x0B</r>", 1, "forbids"},
        {"conf.xml", "\xFF\xFE<\0r\0/\0>\0", 1, "not UTF-8"},
        {"conf.xml", "<?xml version='1.0' encoding = 'GBK'?><r/>", 1, "GBK"},
        {"conf.xml", "<?xml version='1.0' encoding='ascii'?>\n<r/><!--中-->", 2, "not ASCII"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(string(c.path ? c.path : "null") + ": " + c.text.substr(0, 60));
        load("<old/>");
        put(c.text);
        try {
            m_document->load(c.path);
            ADD_FAILURE();
        } catch (const CLiteXmlException& e) {
            EXPECT_EQ(e.file(), c.path ? c.path : "");
            EXPECT_EQ(e.line(), c.line);
            EXPECT_NE(e.reason().find(c.reason), string::npos) << e.reason();
            EXPECT_EQ(e.reason().find('\n'), string::npos);
        }
        EXPECT_THROW(m_document->root(), CLiteXmlException);
        EXPECT_THROW(m_document->save("conf.xml"), CLiteXmlException);
        EXPECT_EQ(m_root->value(), ""); // of the document before
    }
}

TEST_F(XmlTest, ExceptionSaysWhatItKnows)
{
    EXPECT_STREQ(CLiteXmlException("f", 3, " a\n b\n").what(), "f:3: a b");
    EXPECT_STREQ(CLiteXmlException("f", 0, "a").what(), "f: a");
    EXPECT_STREQ(CLiteXmlException("", 3, "a").what(), "3: a");
    EXPECT_STREQ(CLiteXmlException("", 0, "a").what(), "a");
    EXPECT_STREQ(CLiteXmlException("f", 3, "").what(), "f:3");
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
    for (const string& text :
         {body, declaration + body, lower + body, bom + body, bom + declaration + body}) {
        load(text);
        EXPECT_EQ(saved(), text);
    }
    for (const string head :
         {"<?xml version='1.0'?>", "<?xml version='1.0' encoding='Us-Ascii'?>"}) {
        load(head + "<r  a = 'x'><b></b>&#x4E2D;</r>");
        EXPECT_EQ(saved(), declaration + "<r a=\"x\"><b/>中</r>\n");
        m_document->load("conf.xml");
        EXPECT_EQ(saved(), declaration + "<r a=\"x\"><b/>中</r>\n");
    }
}

TEST_F(XmlTest, TextComesBackAsItWentIn)
{
    for (const string text :
         {"", "a", "&amp;<b/>]]>&#65;", "\"'", "中文", " \t\r\n ", "\xF4\x8F\xBF\xBF"}) {
        IXmlNode& root = load("<r a='1'><b>x</b></r>");
        root.setValue(text.c_str());
        root.attribute("a")->setValue(text.c_str());
        root.attribute("new")->setValue(text.c_str());
        const string once = saved();
        IXmlNode& again = load(once);
        EXPECT_EQ(again.value(), text);
        EXPECT_EQ(again.attribute("a")->value(), text);
        EXPECT_EQ(again.attribute("new")->value(), text);
        EXPECT_EQ(saved(), once);
    }
    IXmlNode& root = load("<r a='1'>x</r>");
    for (const char* text :
         {"\x01", "\x1F", "\xEF\xBF\xBE", "\xFF", static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(root.setValue(text), CLiteXmlException);
        EXPECT_THROW(root.attribute("a")->setValue(text), CLiteXmlException);
        EXPECT_THROW(root.attribute("new")->setValue(text), CLiteXmlException);
    }
    EXPECT_EQ(saved(), "<r a=\"1\">x</r>\n");
}

TEST_F(XmlTest, Attributes)
{
    IXmlNode& root = load("<r xmlns:p='u' p:id='p' b='&amp;lt;'>t</r>");
    IXmlNode* const id = root.attribute("id");
    id->release();
    EXPECT_EQ(id, root.attribute("id"));
    EXPECT_EQ(id->value(), "");
    EXPECT_THROW(id->selectNodes("."), CLiteXmlException);
    owned<IXmlNode> twin(m_document->root());
    twin->attribute("id")->setValue("1");
    EXPECT_EQ(id->value(), "1");
    EXPECT_EQ(owned<IXmlNode>(id->selectSingleNode(".."))->value(), "t");
    owned<IXmlNode> prefixed(root.selectSingleNode("@*[. = 'p']"));
    prefixed->setValue("q");
    EXPECT_EQ(root.attribute("b")->value(), "&lt;");
    for (const char* name : {"", "a b", "1", "p:x", "xmlns", "a\xFF"}) {
        EXPECT_EQ(root.attribute(name)->value(), "");
        EXPECT_THROW(root.attribute(name)->setValue("v"), CLiteXmlException) << name;
    }
    EXPECT_THROW(root.attribute(nullptr), CLiteXmlException);
    EXPECT_THROW(id->attribute("id"), CLiteXmlException);
    EXPECT_THROW(prefixed->attribute("id"), CLiteXmlException);
    EXPECT_EQ(saved(), "<r xmlns:p=\"u\" p:id=\"q\" b=\"&amp;lt;\" id=\"1\">t</r>\n");
}

TEST_F(XmlTest, Selections)
{
    IXmlNode& root = load("<r i='0'><a i='1'>1<!--c-->2<b>x<![CDATA[<]]></b></a><a/></r>");
    const struct {
        const char* xpath;
        std::vector<string> values;
    } cases[] = {
        {"a", {"12x<", ""}},
        {"//none", {}},
        {"(//b | /r/a/@i | .)", {"12x<", "1", "x<"}},
        {"//b/ancestor::*", {"12x<", "12x<"}},
        {"//a[last()]/preceding::node()", {"12x<", "1", "c", "2", "x<", "x", "<"}},
        {"/", {"12x<"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.xpath);
        owned<IXmlNodeList> list(root.selectNodes(c.xpath));
        std::vector<string> values;
        for (int i = 0; i < list->count(); ++i) {
            values.push_back(owned<IXmlNode>(list->item(i))->value());
        }
        EXPECT_EQ(values, c.values);
        EXPECT_THROW(list->item(-1), CLiteXmlException);
        EXPECT_THROW(list->item(list->count()), CLiteXmlException);
        owned<IXmlNode> first(root.selectSingleNode(c.xpath));
        ASSERT_EQ(first == nullptr, values.empty());
        EXPECT_EQ(first ? first->value() : "", values.empty() ? "" : values[0]);
    }
    testing::internal::CaptureStderr();
    for (const char* xpath : {"", "a[", "1 + 1", "string(a)", "$x", "p:a", "f(a)", "p:f()", "\xFF",
                              "//namespace::*", static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(root.selectNodes(xpath), CLiteXmlException);
        EXPECT_THROW(root.selectSingleNode(xpath), CLiteXmlException);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (const char* xpath : {"/", "//text()", "//comment()"}) {
        owned<IXmlNode> node(root.selectSingleNode(xpath));
        EXPECT_THROW(node->setValue("x"), CLiteXmlException);
        EXPECT_THROW(node->attribute("x"), CLiteXmlException);
    }
    owned<IXmlNodeList> replaced(root.selectNodes("//b/node()"));
    root.setValue("y");
    EXPECT_EQ(owned<IXmlNode>(replaced->item(0))->value(), "x");
    EXPECT_EQ(saved(), "<r i=\"0\">y</r>\n");
}

TEST_F(XmlTest, FailedSaveLeavesTheOldFile)
{
    load("<r>" + repeat("<a/>", 50000) + "</r>");
    put("old");
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* path : {"dangling", "pipe", ".", "/", "none/conf.xml", "conf.xml/", "", "new/",
                             static_cast<const char*>(nullptr)}) {
        EXPECT_THROW(m_document->save(path), CLiteXmlException) << path;
    }

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
    EXPECT_EQ(get(), "old");
    EXPECT_EQ(access("nowhere", F_OK), -1);
}

TEST_F(XmlTest, SaveKeepsModeAndOwnerAndFollowsLinks)
{
    load("<r/>");
    const bool root = geteuid() == 0;
    ASSERT_EQ(mkdir("real", 0700), 0);
    ASSERT_EQ(rename("conf.xml", "real/file"), 0);
    ASSERT_EQ(chmod("real/file", 0664), 0);
    ASSERT_TRUE(!root || chown("real/file", 1, 2) == 0);
    ASSERT_EQ(symlink("real/file", "conf.xml"), 0);
    // Left by a save that was killed. Its other name must not be written through.
    std::ofstream("victim") << "keep";
    ASSERT_EQ(link("victim", "real/.file.tmp"), 0);

    m_root->setValue("new");
    EXPECT_EQ(saved(), "<r>new</r>\n");
    struct stat status = {};
    ASSERT_EQ(lstat("conf.xml", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(lstat("real/file", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0664U);
    EXPECT_TRUE(!root || (status.st_uid == 1 && status.st_gid == 2));
    EXPECT_EQ(access("real/.file.tmp", F_OK), -1);
    ASSERT_EQ(stat("victim", &status), 0);
    EXPECT_EQ(status.st_size, 4);

    const mode_t mask = umask(027);
    m_document->save("made");
    umask(mask);
    ASSERT_EQ(stat("made", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
}

TEST_F(XmlTest, SavesAtOnceNeverMix)
{
    const auto version = [](int n) {
        return "<r>" + repeat("<a" + std::to_string(n) + "/>", 100 + 900 * n) + "</r>\n";
    };
    put(version(0));
    std::vector<std::thread> savers;
    for (int n = 0; n < 4; ++n) {
        std::ofstream(std::to_string(n)) << version(n);
        savers.emplace_back([n] {
            owned<IXmlDocument> own(host::new_xml_document());
            own->load(std::to_string(n).c_str());
            for (int i = 0; i < 50; ++i) {
                EXPECT_NO_THROW(own->save("conf.xml"));
                owned<IXmlDocument> read(host::new_xml_document());
                EXPECT_NO_THROW(read->load("conf.xml"));
            }
        });
    }
    for (std::thread& saver : savers) {
        saver.join();
    }
    const string last = get();
    EXPECT_TRUE(last == version(0) || last == version(1) || last == version(2) ||
                last == version(3));
    EXPECT_EQ(access(".conf.xml.tmp", F_OK), -1);
}

} // namespace
