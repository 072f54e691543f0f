// The configuration store: what it reads, what it writes, and what is left when the XML library
// fails.
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
using Items = std::vector<rpc::SystemOptimize_Item>;

std::string info(const std::string& id, const std::string& name, const std::string& op,
                 const std::string& level, const std::string& xinetd)
{
    return "<info id=\"" + id + "\" name=\"" + name + "\" op=\"" + op + "\" level=\"" + level +
           "\" xinetd=\"" + xinetd + "\" desc=\"d\"/>";
}

TEST_F(ConfTest, ReadsNumbersAsFarAsTheyGo)
{
    for (const std::string row :
         {" \n\t42 x=42", "+7=7", "=0", "0x10=0", "-1=4294967295", "1<!---->2=12",
          "99999999999=2147483647", "-99999999999999999999999=2147483648"}) {
        const std::size_t end = row.find('=');
        write_conf("");
        std::string conf = read(conf_path);
        write(conf_path, conf.replace(conf.find("85"), 2, row, 0, end));
        unsigned int score = 1;
        unsigned int count = 1;
        EXPECT_TRUE(CConf::GetOptimizeScore(score) && CConf::GetOptimizeCount(count));
        EXPECT_EQ(std::to_string(score), row.substr(end + 1));
        EXPECT_EQ(count, 3U);
    }
}

TEST_F(ConfTest, MissesElementsThatAreNotThere)
{
    write(conf_path, "<kavra_conf><myself_config/></kavra_conf>");
    const std::string before = read(conf_path);
    unsigned int number = 77;
    EXPECT_FALSE(CConf::GetOptimizeScore(number) || CConf::GetOptimizeCount(number));
    EXPECT_FALSE(CConf::SetOptimizeScore(5));
    EXPECT_EQ(std::to_string(number) + read(conf_path), "77" + before);
}

TEST_F(ConfTest, ConvertsToGbkUpToWhatCannotBeConverted)
{
    EXPECT_EQ(CConf::utf8_to_gbk(""), "");
    for (const std::string rest : {"", "\xFF后", "\xE6\x93", "\xF0\x9F\x98\x80后"}) {
        EXPECT_EQ(CConf::utf8_to_gbk("操作" + rest), "\xB2\xD9\xD7\xF7") << rest;
    }
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
            EXPECT_EQ(*item.name + *item.desc, "ad");
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
    const std::function<bool()> operations[] = {
        [&] { return CConf::GetOptimizeScore(number); }, [&] { return CConf::SetOptimizeScore(1); },
        [&] { return CConf::GetValidServiceList(live, items); },
        [&] { return CConf::GetServiceFromConfigByOp(services, OPT_NONE); },
        [&] {
            return CConf::ModifyOpByIds({1, 2}, OPT_IGNORED);
        }};
    for (const auto& operation : operations) {
        for (fake::Faults* const faults : {&fake::xml_faults, &fake::memory_faults}) {
            fake::sweep(*faults, [&] {
                write_conf(info("1", "a", "0", "L", "7") + info("2", "b", "0", "L", "7"));
                const std::string before = read(conf_path);
                const bool done = operation();
                const std::string_view failed = faults->failed; // memory: or with an empty text
                EXPECT_TRUE(done == failed.empty() || (done && failed == "new")) << failed;
                EXPECT_TRUE(std::exchange(number, 0) == 0 || done);
                EXPECT_TRUE(done || failed == "release" || read(conf_path) == before);
                EXPECT_TRUE(!done || &operation != &operations[2] || items.size() == 1);
                for (const rpc::SystemOptimize_Item& item : items) {
                    EXPECT_TRUE(item.name != nullptr && item.desc != nullptr);
                }
                rpc::free_strings(items);
                items = Items();
                services = std::vector<ServiceOptimize>();
            });
        }
    }
}

} // namespace
