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

CServiceMap one_service(const char* level = "3", bool xinetd = false)
{
    CServiceMap services;
    services["a"] = {level, xinetd};
    return services;
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

TEST_F(ConfTest, WritesTheScoreAlone)
{
    write_conf("<!-- none -->");
    std::string expected = read(conf_path);
    expected.replace(expected.find("85"), 2, "4294967295");
    EXPECT_TRUE(CConf::SetOptimizeScore(4294967295U));
    EXPECT_EQ(read(conf_path), expected);
    const std::string without = "<kavra_conf><myself_config/></kavra_conf>";
    write(conf_path, without);
    unsigned int number = 77;
    EXPECT_FALSE(CConf::GetOptimizeScore(number) || CConf::GetOptimizeCount(number));
    EXPECT_FALSE(CConf::SetOptimizeScore(5));
    EXPECT_EQ(number, 77U);
    EXPECT_EQ(read(conf_path), without);
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
        ASSERT_TRUE(CConf::GetValidServiceList(one_service(level.c_str(), kind == "x"), items));
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
    EXPECT_TRUE(CConf::GetValidServiceList(one_service(), items));
    EXPECT_EQ(read(conf_path), "<kavra_conf a=\"1\"/>\n");
}

TEST_F(ConfTest, NeverAppendsARecordWithoutItsStrings)
{
    write_conf(info("1", "a", "3", "off", "0"));
    const std::string before = read(conf_path);
    const CServiceMap live = one_service();
    fake::sweep(fake::memory_faults, [&] {
        Items items;
        const rpc::ItemStringsGuard guard(items);
        const bool done = CConf::GetValidServiceList(live, items);
        EXPECT_EQ(items.size(), done ? 1U : 0U);
        EXPECT_TRUE(items.empty() || (items[0].name != nullptr && items[0].desc != nullptr));
        EXPECT_TRUE(done || read(conf_path) == before);
    });
}

TEST_F(ConfTest, SurvivesEveryFailureOfTheXmlLibrary)
{
    const CLiteXmlException longest(std::string(200, 'x'), 0, ""); // sizes what the library keeps
    const CServiceMap live = one_service();
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
        fake::sweep(fake::xml_faults, [&] {
            write_conf(info("1", "a", "0", "L", "7") + info("2", "b", "0", "L", "7"));
            const std::string before = read(conf_path);
            fake::xml_saves = 0;
            number = 0;
            const bool done = operation();
            EXPECT_EQ(done, fake::xml_faults.failed.empty());
            EXPECT_TRUE(done || number == 0);
            EXPECT_TRUE(fake::xml_saves == 1 || read(conf_path) == before);
            rpc::ItemStringsGuard::free_strings(items);
            items = Items();
            services = std::vector<ServiceOptimize>();
        });
    }
}

} // namespace
