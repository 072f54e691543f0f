// The configuration store: what it reads and writes, and what remains when the XML library fails.
#include "conf/conf.h"
#include "framework/xml.h"
#include "tests/fake_framework.h"
#include "tests/workspace.h"

#include <functional>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

using ConfTest = Workspace;
using rpc::Items;

std::string info(const std::string& id, const std::string& name, const std::string& op,
                 const std::string& level, const std::string& xinetd)
{
    return "<info id=\"" + id + "\" name=\"" + name + "\" op=\"" + op + "\" level=\"" + level +
           "\" xinetd=\"" + xinetd + "\" desc=\"d\"/>";
}

TEST_F(ConfTest, ReadsNumbers)
{
    const std::pair<const char*, unsigned int> table[] = {{" \n\t42 x", 42},
                                                          {"+7", 7},
                                                          {"", 0},
                                                          {"0x10", 0},
                                                          {"-1", 4294967295},
                                                          {"1<!---->2", 12},
                                                          {"99999999999", 2147483647},
                                                          {"-99999999999999999999", 2147483648}};
    for (const auto& [text, number] : table) {
        write(conf_path,
              "<kavra_conf><myself_config><optimize_num>3</optimize_num><optimize_sorce>" +
                  std::string(text) + "</optimize_sorce></myself_config></kavra_conf>");
        unsigned int score = 1;
        unsigned int count = 1;
        EXPECT_TRUE(CConf::GetOptimizeScore(score)) << text;
        EXPECT_TRUE(CConf::GetOptimizeCount(count)) << text;
        EXPECT_EQ(score, number) << text;
        EXPECT_EQ(count, 3U) << text;
    }
    const std::string before = "<kavra_conf><myself_config/></kavra_conf>";
    write(conf_path, before);
    unsigned int number = 77;
    EXPECT_FALSE(CConf::GetOptimizeScore(number));
    EXPECT_FALSE(CConf::GetOptimizeCount(number));
    EXPECT_FALSE(CConf::SetOptimizeScore(5));
    EXPECT_EQ(number, 77U);
    EXPECT_EQ(read(conf_path), before);
}

TEST_F(ConfTest, ConvertsToGbkUpToWhatCannotBeConverted)
{
    EXPECT_EQ(CConf::utf8_to_gbk(""), "");
    EXPECT_EQ(CConf::utf8_to_gbk("囧a"), "\x87\xE5\x61"); // not in GB2312
    for (const std::string rest : {"", "\xFF后", "\xE6\x93", "\xF0\x9F\x98\x80后"}) {
        EXPECT_EQ(CConf::utf8_to_gbk("操作" + rest), "\xB2\xD9\xD7\xF7") << rest;
    }
}

TEST_F(ConfTest, SelectsAndChangesEntries)
{
    write_conf(info("5", "a", "0", "23", "1") + info(" 9x", "b", "none", "off", "-2") +
               info("5", "c", "1", "4", "1") + info("5", "d", "3", "", "1") +
               info("7", "e", "00", "on", "0"));
    std::vector<ServiceOptimize> entries(1);
    EXPECT_TRUE(CConf::GetServiceFromConfigByOp(entries, OPT_NONE));
    std::string text;
    for (const ServiceOptimize& entry : entries) {
        text += std::to_string(entry.id) + ' ' + entry.name + ' ' + std::to_string(entry.op) + ' ' +
                entry.level + ' ' + std::to_string(static_cast<int>(entry.xinetd)) + "; ";
    }
    EXPECT_EQ(text, "0  0  0; 5 a 0 23 1; 9 b 0 off 1; 7 e 0 on 0; ");
    ServiceOptimize found;
    EXPECT_FALSE(CConf::FindServiceById(entries, 6, found));
    EXPECT_EQ(found.name, "");
    entries.push_back(ServiceOptimize{5, "later", OPT_NONE, "", false});
    EXPECT_TRUE(CConf::FindServiceById(entries, 5, found));
    EXPECT_EQ(found.name, "a");

    EXPECT_TRUE(CConf::ModifyOpByIds({7, 5, 5, 1}, OPT_NONE));
    EXPECT_THAT(read(conf_path),
                testing::HasSubstr(info("5", "a", "0", "23", "1") +
                                   info(" 9x", "b", "none", "off", "-2") +
                                   info("5", "c", "0", "4", "1") + info("5", "d", "3", "", "1") +
                                   info("7", "e", "0", "on", "0")));
}

// A stored level of "L" and a stored xinetd of "7" show whether the attributes were written.
TEST_F(ConfTest, ReconcilesEveryEntryWithTheMachine)
{
    // Kind, live level, state before and afterwards, and whether the attributes were written.
    for (const char* const row :
         {"x on 2 2 kept", "x on 0 0 written", "x on 1 0 written", "x on 3 0 written",
          "x off 1 1 kept", "x off 0 3 written", "x off 2 3 written", "x based 0 0 kept",
          "x based -5 -5 kept", "l off 1 1 kept", "l off x 3 written", "l off 2 3 written",
          "l 2345 2 2 kept", "l 2345 0 0 written", "l 2345 1 0 written", "l 2345 3 0 written",
          "l on 1 0 written"}) {
        SCOPED_TRACE(row);
        std::string kind, level, before, after, written;
        std::istringstream(row) >> kind >> level >> before >> after >> written;
        write_conf(info("-7", "a", before, "L", "7") + info("8", "gone", "1", "L", "7"));
        Items items;
        const rpc::ItemStringsGuard guard(items);
        ASSERT_TRUE(CConf::GetValidServiceList({{{"a", {level, kind == "x"}}}}, items));
        const std::string entry = written == "kept"
                                      ? info("-7", "a", after, "L", "7")
                                      : info("-7", "a", after, level, kind == "x" ? "1" : "0");
        EXPECT_THAT(read(conf_path),
                    testing::HasSubstr(">" + entry + info("8", "gone", "3", "L", "7") + "<"));
        ASSERT_EQ(items.size(), written == "written" && after == "3" ? 0U : 1U);
        for (const rpc::SystemOptimize_Item& item : items) {
            EXPECT_EQ(item.id, static_cast<rpc::int32>(-7));
            EXPECT_EQ(*item.name, "a");
            EXPECT_EQ(*item.desc, "d");
            EXPECT_EQ(item.op, static_cast<rpc::int32>(std::stoi(after)));
        }
    }
    write(conf_path, "<kavra_conf  a='1'/>\n"); // an empty list is saved, too
    Items items;
    EXPECT_TRUE(CConf::GetValidServiceList({}, items));
    EXPECT_EQ(read(conf_path), "<kavra_conf a=\"1\"/>\n");
}

TEST_F(ConfTest, SurvivesFailuresOfTheXmlLibraryAndOfMemory)
{
    const CLiteXmlException longest(std::string(200, 'x'), 0, ""); // sizes what the library keeps
    const CServiceMap live = {{{"a", {"3", false}}}};
    unsigned int number = 0;
    Items items;
    std::vector<ServiceOptimize> services;
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"get", [&] { return CConf::GetOptimizeScore(number); }},
        {"set", [&] { return CConf::SetOptimizeScore(1); }},
        {"list", [&] { return CConf::GetValidServiceList(live, items); }},
        {"select", [&] { return CConf::GetServiceFromConfigByOp(services, OPT_NONE); }},
        {"modify", [&] {
             return CConf::ModifyOpByIds({1, 2}, OPT_IGNORED);
         }}};
    for (const auto& [name, operation] : operations) {
        for (fake::Faults* const faults : {&fake::xml_faults, &fake::memory_faults}) {
            SCOPED_TRACE(std::string(name) + (faults == &fake::xml_faults ? ", XML" : ", memory"));
            fake::sweep(*faults, [&, &call = operation] {
                write_conf(info("1", "a", "0", "L", "7") + info("2", "b", "0", "L", "7"));
                const std::string before = read(conf_path);
                const bool done = call();
                const std::string_view failed = faults->failed;
                if (failed != "new") { // without memory a text may also be empty
                    EXPECT_EQ(done, failed.empty()) << failed;
                }
                if (!done) {
                    EXPECT_EQ(std::exchange(number, 0), 0U) << failed;
                    EXPECT_EQ(failed == "release" ? before : read(conf_path), before) << failed;
                }
                number = 0;
                for (const rpc::SystemOptimize_Item& item : items) {
                    EXPECT_NE(item.name, nullptr) << failed;
                    EXPECT_NE(item.desc, nullptr) << failed;
                }
                rpc::free_strings(items);
                items = Items();
                services = std::vector<ServiceOptimize>();
            });
        }
    }
}

} // namespace
