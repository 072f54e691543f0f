// The configuration store: what it reads, what it writes, and what is left when the XML library
// fails.
#include "conf/conf.h"
#include "framework/xml.h"
#include "tests/allocations.h"
#include "tests/fake_framework.h"
#include "tests/workspace.h"

#include <functional>
#include <gmock/gmock.h>
#include <map>

namespace
{

using Calls = std::vector<std::string>;
using Items = std::vector<rpc::SystemOptimize_Item>;
using testing::ElementsAre;

class ConfTest : public Workspace
{
protected:
    ~ConfTest() override { rpc::ItemStringsGuard::free_strings(m_items); }

    std::vector<rpc::SystemOptimize_Item> m_items;
};

std::string info(const std::string& id, const std::string& name, const std::string& op,
                 const std::string& level, const std::string& xinetd)
{
    return "<info id=\"" + id + "\" name=\"" + name + "\" op=\"" + op + "\" level=\"" + level +
           "\" xinetd=\"" + xinetd + "\" desc=\"d\"/>";
}

TEST_F(ConfTest, ReadsNumbersAsFarAsTheyGo)
{
    const std::map<std::string, unsigned int> table = {{"42", 42},
                                                       {" \n\t42", 42},
                                                       {"42 apples", 42},
                                                       {"+7", 7},
                                                       {"", 0},
                                                       {"none", 0},
                                                       {"-1", 4294967295U},
                                                       {"99999999999", 2147483647U},
                                                       {"0x10", 0},
                                                       {"-99999999999999999999999", 2147483648U},
                                                       {"1<!-- -->2", 12}};
    for (const auto& [text, expected] : table) {
        const std::string before = "<kavra_conf><myself_config><optimize_num>9</optimize_num>"
                                   "<optimize_sorce>" +
                                   text + "</optimize_sorce></myself_config></kavra_conf>";
        write(conf_path, before);
        unsigned int score = 1;
        unsigned int count = 1;
        EXPECT_TRUE(CConf::GetOptimizeScore(score));
        EXPECT_TRUE(CConf::GetOptimizeCount(count));
        EXPECT_EQ(score, expected) << text;
        EXPECT_EQ(count, 9U);
        EXPECT_EQ(read(conf_path), before);
    }
}

TEST_F(ConfTest, FailsWithoutTheElementOrTheFile)
{
    const std::string without = "<kavra_conf><myself_config/></kavra_conf>\n";
    unsigned int number = 77;
    for (const char* const text : {without.c_str(), "<kavra_conf>"}) {
        write(conf_path, text);
        EXPECT_FALSE(CConf::GetOptimizeScore(number));
        EXPECT_FALSE(CConf::GetOptimizeCount(number));
        EXPECT_FALSE(CConf::SetOptimizeScore(5));
        EXPECT_EQ(read(conf_path), text);
    }
    EXPECT_EQ(number, 77U);
}

TEST_F(ConfTest, WritesTheScoreAlone)
{
    for (const unsigned int score : {0U, 85U, 4294967295U}) {
        write_conf("<!-- none -->");
        std::string expected = read(conf_path);
        expected.replace(expected.find("85"), 2, std::to_string(score));
        EXPECT_TRUE(CConf::SetOptimizeScore(score));
        EXPECT_EQ(read(conf_path), expected);
    }
}

TEST_F(ConfTest, ConvertsToGbkUpToWhatCannotBeConverted)
{
    const std::string gbk = "\xB2\xD9\xD7\xF7";
    const std::map<std::string, std::string> table = {{"", ""},
                                                      {"cron", "cron"},
                                                      {"操作", gbk},
                                                      {"操作\xFF后", gbk},           // no UTF-8
                                                      {"操作\xE6\x93", gbk},         // cut short
                                                      {"操作\xF0\x9F\x98\x80", gbk}, // not in GBK
                                                      {std::string("操作\0后", 10), gbk},
                                                      {std::string("\0x", 2), ""}};
    for (const auto& [utf8, expected] : table) {
        EXPECT_EQ(CConf::utf8_to_gbk(utf8), expected) << utf8;
    }
}

// A stored level of "L" and a stored xinetd of "7" show whether the attributes were written.
TEST_F(ConfTest, ReconcilesEveryEntryWithTheMachine)
{
    struct Row {
        bool xinetd;
        const char* live;
        const char* stored;
        int listed; // -1: not
        const char* op;
        const char* level;
        const char* flag;
    };
    const Row table[] = {
        {true, "on", "2", 2, "2", "L", "7"},       {true, "on", "0", 0, "0", "on", "1"},
        {true, "on", "1", 0, "0", "on", "1"},      {true, "on", "3", 0, "0", "on", "1"},
        {true, "on", "9", 0, "0", "on", "1"},      {true, "off", "1", 1, "1", "L", "7"},
        {true, "off", "0", -1, "3", "off", "1"},   {true, "off", "2", -1, "3", "off", "1"},
        {true, "based", "0", 0, "0", "L", "7"},    {true, "based", "3", 3, "3", "L", "7"},
        {true, "based", "-5", -5, "-5", "L", "7"}, {false, "off", "1", 1, "1", "L", "7"},
        {false, "off", "0", -1, "3", "off", "0"},  {false, "off", "2", -1, "3", "off", "0"},
        {false, "off", "x", -1, "3", "off", "0"},  {false, "2345", "2", 2, "2", "L", "7"},
        {false, "2345", "0", 0, "0", "2345", "0"}, {false, "2345", "1", 0, "0", "2345", "0"},
        {false, "2345", "3", 0, "0", "2345", "0"}, {false, "2345", "x", 0, "0", "2345", "0"},
        {false, "on", "1", 0, "0", "on", "0"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(std::string(row.xinetd ? "xinetd " : "") + row.live + " " + row.stored);
        write_conf(info("-7", "svc", row.stored, "L", "7") + info("8", "gone", "1", "L", "7"));
        CServiceMap live;
        live["svc"] = {row.live, row.xinetd};
        live["Svc"] = {"5", false};
        rpc::ItemStringsGuard::free_strings(m_items);
        m_items.clear();
        ASSERT_TRUE(CConf::GetValidServiceList(live, m_items));
        EXPECT_NE(read(conf_path).find(">" + info("-7", "svc", row.op, row.level, row.flag) +
                                       info("8", "gone", "3", "L", "7") + "<"),
                  std::string::npos)
            << read(conf_path);
        ASSERT_EQ(m_items.size(), row.listed == -1 ? 0U : 1U);
        if (!m_items.empty()) {
            EXPECT_EQ(m_items[0].id, static_cast<rpc::int32>(-7));
            EXPECT_EQ(*m_items[0].name, "svc");
            EXPECT_EQ(*m_items[0].desc, "d");
            EXPECT_EQ(m_items[0].op, static_cast<rpc::int32>(row.listed));
        }
    }
}

TEST_F(ConfTest, AppendsRecordsInDocumentOrderAndSavesAnEmptyList)
{
    CServiceMap live;
    live["a"] = {"3", false};
    live["b"] = {"on", true};
    write_conf(info("2", "b", "0", "on", "1") + info("1", "a", "0", "3", "0") +
               info("3", "b", "0", "on", "1"));
    m_items.push_back({99, nullptr, nullptr, 0});
    EXPECT_TRUE(CConf::GetValidServiceList(live, m_items));
    std::vector<unsigned int> ids;
    for (const rpc::SystemOptimize_Item& item : m_items) {
        ids.push_back(item.id);
    }
    EXPECT_THAT(ids, ElementsAre(99, 2, 1, 3));

    write(conf_path, "<kavra_conf  a='1'/>\n"); // saving normalises the tag
    EXPECT_TRUE(CConf::GetValidServiceList(live, m_items));
    EXPECT_EQ(read(conf_path), "<kavra_conf a=\"1\"/>\n");
}

TEST_F(ConfTest, NeverAppendsARecordWithoutItsStrings)
{
    CServiceMap live;
    live["a"] = {"3", false};
    write_conf(info("1", "a", "3", "off", "0"));
    const std::string before = read(conf_path);
    for (const int string : {1, 2}) {
        fake::xml_calls = Calls();
        m_items = Items();
        const long alive = allocations::live();
        allocations::fail_nothrow(string);
        EXPECT_FALSE(CConf::GetValidServiceList(live, m_items));
        allocations::fail_nothrow(0);
        EXPECT_TRUE(m_items.empty());
        fake::xml_calls = Calls();
        EXPECT_EQ(allocations::live(), alive);
        EXPECT_EQ(read(conf_path), before);
    }
}

TEST_F(ConfTest, SelectsByState)
{
    write_conf(info("1", "a", "0", " 2 3", "-1") + info("2", "b", "1", "on", "1") +
               info("1", "c", "x", "off", "x") + "<info/>");
    std::vector<ServiceOptimize> found(1);
    EXPECT_TRUE(CConf::GetServiceFromConfigByOp(found, OPT_NONE));
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[1].name + found[1].level + found[2].name + found[3].name, "a 2 3c");
    EXPECT_TRUE(found[1].xinetd);
    EXPECT_FALSE(found[2].xinetd);
    EXPECT_TRUE(CConf::GetServiceFromConfigByOp(found, OPT_UNAVAILABLE));
    EXPECT_EQ(found.size(), 4U);

    ServiceOptimize entry;
    EXPECT_TRUE(CConf::FindServiceById(found, 1, entry));
    EXPECT_EQ(entry.name, "a");
    EXPECT_FALSE(CConf::FindServiceById(found, 2, entry));
    EXPECT_EQ(entry.name, "a");
}

TEST_F(ConfTest, ChangesStatesById)
{
    write_conf(info("1", "a", "01", "L", "7") + info("1", "b", "x", "L", "7") +
               info("1", "c", "3", "L", "7") + info("-1", "d", "0", "L", "7"));
    std::string expected = read(conf_path);
    EXPECT_TRUE(CConf::ModifyOpByIds({}, OPT_IGNORED));
    EXPECT_EQ(read(conf_path), expected);
    EXPECT_TRUE(CConf::ModifyOpByIds({5, 1, 1}, OPT_OPTIMIZED));
    for (const char* const op : {"\"01\"", "\"x\""}) {
        expected.replace(expected.find(op), std::string(op).size(), "\"1\"");
    }
    EXPECT_EQ(read(conf_path), expected);
}

/// Checks that what the calls obtained was given back once each, in reverse order.
void expect_reverse_releases(const std::vector<std::string>& calls)
{
    const std::map<std::string, std::string> obtained = {{"newXmlDocument", "document"},
                                                         {"root", "root"},
                                                         {"selectSingleNode", "node"},
                                                         {"selectNodes", "list"},
                                                         {"item", "item"}};
    std::vector<std::string> held;
    for (const std::string& call : calls) {
        const auto object = obtained.find(call);
        if (object != obtained.end()) {
            held.push_back(object->second);
        } else if (call.compare(0, 8, "release ") == 0) {
            ASSERT_FALSE(held.empty()) << call;
            EXPECT_EQ(call.substr(8, held.back().size()), held.back());
            held.pop_back();
        }
    }
    EXPECT_TRUE(held.empty());
}

TEST_F(ConfTest, SurvivesEveryFailureOfTheXmlLibrary)
{
    const CLiteXmlException longest(std::string(200, 'x'), 0, ""); // sizes what the library keeps
    CServiceMap live;
    live["a"] = {"3", false};
    unsigned int number = 77;
    std::vector<ServiceOptimize> services;
    const std::map<std::string, std::function<bool()>> operations = {
        {"GetOptimizeScore", [&] { return CConf::GetOptimizeScore(number); }},
        {"SetOptimizeScore", [] { return CConf::SetOptimizeScore(1); }},
        {"GetValidServiceList", [&] { return CConf::GetValidServiceList(live, m_items); }},
        {"GetServiceFromConfigByOp",
         [&] { return CConf::GetServiceFromConfigByOp(services, OPT_NONE); }},
        {"ModifyOpByIds", [] {
             return CConf::ModifyOpByIds({1, 2}, OPT_IGNORED);
         }}};
    for (const auto& [name, operation] : operations) {
        bool done = false;
        for (int call = 1; !done; ++call) {
            ASSERT_LT(call, 100);
            SCOPED_TRACE(name + ", call " + std::to_string(call));
            write_conf(info("1", "a", "0", "L", "7") + info("2", "b", "0", "L", "7"));
            const std::string before = read(conf_path);
            number = 77;
            const long alive = allocations::live();
            fake::xml_faults.arm(call);
            done = operation();
            fake::xml_faults.arm(0);
            EXPECT_EQ(number == 77, !done || name != "GetOptimizeScore");
            const bool saved = std::find(fake::xml_calls.begin(), fake::xml_calls.end(), "save") !=
                               fake::xml_calls.end();
            EXPECT_TRUE(saved || read(conf_path) == before);
            expect_reverse_releases(fake::xml_calls);
            fake::xml_calls = Calls();
            services = std::vector<ServiceOptimize>();
            rpc::ItemStringsGuard::free_strings(m_items);
            m_items = Items();
            EXPECT_EQ(allocations::live(), alive);
        }
    }
}

} // namespace
