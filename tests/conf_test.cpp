// The configuration store: what it reads and writes.
#include "conf/conf.h"
#include "tests/fake_framework.h"

#include <sstream>

using ConfTest = Workspace;
using rpc::Items;

static std::string info(const std::string& id, const std::string& name, const std::string& op,
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
        write(conf_path, "<kavra_conf><myself_config><optimize_sorce>" + std::string(text) +
                             "</optimize_sorce></myself_config></kavra_conf>");
        unsigned int score = 1;
        EXPECT_TRUE(CConf::GetOptimizeScore(score)) << text;
        EXPECT_EQ(score, number) << text;
    }
    const std::string before = "<kavra_conf><myself_config/></kavra_conf>";
    write(conf_path, before);
    unsigned int number = 77;
    EXPECT_FALSE(CConf::GetOptimizeScore(number));
    EXPECT_FALSE(CConf::GetOptimizeCount(number));
    EXPECT_EQ(number, 77U);
    EXPECT_FALSE(CConf::SetOptimizeScore(5));
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
    const std::string unchanged =
        info("5", "a", "0", "23", "1") + info(" 9x", "b", "none", "off", "-2");
    const std::string unavailable = info("5", "d", "3", "", "1");
    write_conf(unchanged + info("5", "c", "1", "4", "1") + unavailable +
               info("7", "e", "00", "on", "0"));
    std::vector<ServiceOptimize> entries(1);
    EXPECT_TRUE(CConf::GetServiceFromConfigByOp(entries, OPT_NONE));
    std::string selected;
    for (const auto& [id, name, op, level, xinetd] : entries) {
        selected += info(std::to_string(id), name, std::to_string(op), level, xinetd ? "1" : "0");
    }
    EXPECT_EQ(selected, info("0", "", "0", "", "0") + info("5", "a", "0", "23", "1") +
                            info("9", "b", "0", "off", "1") + info("7", "e", "0", "on", "0"));
    ServiceOptimize found;
    EXPECT_FALSE(CConf::FindServiceById(entries, 6, found));
    EXPECT_EQ(found.name, "");
    entries.push_back(ServiceOptimize{5, "later", OPT_NONE, "", false});
    EXPECT_TRUE(CConf::FindServiceById(entries, 5, found));
    EXPECT_EQ(found.name, "a");

    EXPECT_TRUE(CConf::ModifyOpByIds({7, 5, 5, 1}, OPT_NONE));
    EXPECT_THAT(read(conf_path), testing::HasSubstr(unchanged + info("5", "c", "0", "4", "1") +
                                                    unavailable + info("7", "e", "0", "on", "0")));
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
        const bool kept = written == "kept";
        const std::string entry =
            info("-7", "a", after, kept ? "L" : level, kept ? "7" : std::to_string(kind == "x"));
        EXPECT_THAT(read(conf_path),
                    testing::HasSubstr(">" + entry + info("8", "gone", "3", "L", "7") + "<"));
        ASSERT_EQ(items.size(), after == "3" ? 0U : 1U);
        for (const rpc::SystemOptimize_Item& item : items) {
            EXPECT_EQ(std::to_string(static_cast<int>(item.op)), after);
        }
    }
    Items items;
    const rpc::ItemStringsGuard guard(items);
    write_conf("<info name='a'/>"); // attributes that are missing are added in this order
    EXPECT_TRUE(CConf::GetValidServiceList({{{"a", {"3", false}}}}, items));
    EXPECT_THAT(read(conf_path),
                testing::HasSubstr("name=\"a\" op=\"0\" level=\"3\" xinetd=\"0\"/"));
    write(conf_path, "<kavra_conf  a='1'/>\n"); // an empty list is saved, too
    EXPECT_TRUE(CConf::GetValidServiceList({}, items));
    EXPECT_EQ(read(conf_path), "<kavra_conf a=\"1\"/>\n");
}
