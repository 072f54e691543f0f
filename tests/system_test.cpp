// The real module, loaded by the real host, on a copy of the embedded machine.
#include "tests/workspace.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

namespace
{

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

class SystemTest : public Workspace
{
protected:
    SystemTest() { EXPECT_EQ(std::system("cp -r " SOURCE_DIR "/machine/. ."), 0); }

    struct Outcome {
        int status;
        std::string output;
        std::string errors;
    };

    static Outcome shell(const std::string& command)
    {
        const int status = std::system(("(" + command + ") >output 2>errors </dev/null").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("output"), read("errors")};
    }
    static Outcome host(const std::string& arguments) { return shell(HOST " " + arguments); }

    /// The replies of a call, all but the last, which must be a success.
    static std::vector<Json> items(const std::string& arguments)
    {
        const Outcome outcome = host("--json " + arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        std::vector<Json> replies;
        std::istringstream lines(outcome.output);
        for (std::string line; std::getline(lines, line);) {
            replies.push_back(Json::parse(line));
            EXPECT_EQ(replies.back()["code"], "0x80000000");
        }
        EXPECT_EQ(replies.back()["reply"], "final");
        EXPECT_EQ(replies.back()["result"], "0x840C0000");
        replies.pop_back();
        return replies;
    }
};

TEST_F(SystemTest, ModuleExportsOneSymbolAndLinksTheStandardLibrariesAlone)
{
    if (SANITIZE[0] != '\0') {
        GTEST_SKIP() << "a sanitizer brings its own symbols and libraries";
    }
    EXPECT_THAT(shell("nm -D --defined-only " MODULE " | cut -d' ' -f2-").output,
                testing::StrEq("T rpc_ireal_Optimize_Option\n"));
    const std::string needed =
        shell("readelf -d " MODULE " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\.so.*/\\1/p'").output;
    EXPECT_THAT(needed, HasSubstr("libfwbase\n"));
    std::istringstream libraries(needed);
    for (std::string library; libraries >> library;) {
        EXPECT_THAT(library, testing::AnyOf("libfwbase", "libstdc++", "libgcc_s", "libc", "libm",
                                            "ld-linux-x86-64", "ld-linux-aarch64"));
    }
}

TEST_F(SystemTest, ListsTheMachineInAnyLocale)
{
    EXPECT_EQ(shell("LC_ALL=C chkconfig --list").output, read("chkconfig-list.txt"));
    EXPECT_THAT(shell("env -u LC_ALL LANG=zh_CN.UTF-8 chkconfig --list").output,
                HasSubstr("2:\xE5\xBC\x80"));
    for (const char* const locale : {"LC_ALL=C", "LC_ALL=zh_CN.UTF-8", "LANG=zh_CN.UTF-8"}) {
        setenv(std::string(locale).substr(0, std::string(locale).find('=')).c_str(),
               std::string(locale).substr(std::string(locale).find('=') + 1).c_str(), 1);
        const std::vector<Json> replies = items("ls_service");
        ASSERT_EQ(replies.size(), 19U) << locale;
        const Json& first = replies[0]["services"][0];
        EXPECT_EQ(first["id"], 1);
        EXPECT_EQ(first["name"], "crond");
        EXPECT_THAT(first["desc"].get<std::string>(), HasSubstr("计划任务服务"));
        EXPECT_EQ(first["op"], 0);
        EXPECT_EQ(replies[15]["services"][0]["op"], 1); // switched off earlier
        EXPECT_EQ(host("ls_service").output.find("httpd"), std::string::npos);
    }
    unsetenv("LC_ALL");
    unsetenv("LANG");
}

TEST_F(SystemTest, AnswersOnTheCommandLine)
{
    const char* const final_line = R"({"reply":"final","result":"0x840C0000","code":"0x80000000")";
    const struct {
        const char* arguments;
        int status;
        std::string output;
        const char* errors;
    } table[] = {
        {"--json get_optimize_sorce", 0, final_line + std::string(",\"value\":85}\n"), ""},
        {"get_optimize_num", 0, "3\nsuccess (code 0x80000000)\n", ""},
        {"--json set_optimize_sorce 4294967295", 0, final_line + std::string("}\n"), ""},
        {"--json ls_reg", 0, final_line + std::string(",\"services\":[]}\n"), ""},
        {"--json optimize_other 1 2", 0, final_line + std::string(",\"ids\":[]}\n"), ""},
        {"--json frobnicate", 3, "{\"reply\":\"none\",\"result\":\"0x040C0001\"}\n",
         "optimize_host: frobnicate: no such operation\n"},
        {"", 2, "", "the operation is missing"},
        {"--frobnicate", 2, "", "--frobnicate: no such option"},
        {"set_optimize_sorce", 2, "", "set_optimize_sorce: the value is missing"},
        {"set_optimize_sorce 4294967296", 2, "", "'4294967296' is not a number"},
        {"optimize_service 1 -2", 2, "", "'-2' is not a number"},
        {"ignore_service maybe 1", 2, "", "'maybe' is neither on nor off"},
        {"get_optimize_num 1", 2, "", "'1' is one argument too many"},
        {"--module missing.so ls_service", 3, "", "missing.so: cannot open"},
        {"--module chkconfig-list.txt ls_service", 3, "", "chkconfig-list.txt"},
        {"get_optimize_num >/dev/full", 3, "", "standard output: No space left"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = host(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.output, row.output);
        EXPECT_THAT(outcome.errors, HasSubstr(row.errors));
        EXPECT_LE(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    }
    write(conf_path, "<kavra_conf>\n<oops>\n");
    const Outcome outcome = host("--json ls_service");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "{\"reply\":\"final\",\"result\":\"0x840C0000\",\"code\":\"0x00000000\"}\n");
    EXPECT_THAT(outcome.errors,
                HasSubstr("optimize_host: ls_service: ./config/system_operation/conf.xml:3: "));
}

TEST_F(SystemTest, PrintsValidJsonForAnyBytes)
{
    write("bin/chkconfig", "#!/bin/sh\nprintf 'a\\377\\001\"\\t0:on\\n'\n");
    // The name of the configured service cannot hold these bytes, but that of the machine can.
    write_conf("<info id='1' name='a' op='0' desc='&quot;&#9;\\ 操作'/>");
    EXPECT_TRUE(items("ls_service").empty());
    write("bin/chkconfig", "#!/bin/sh\nprintf 'a\\t0:on\\n'\n");
    EXPECT_EQ(items("ls_service")[0]["services"][0]["desc"], "\"\t\\ 操作");
    EXPECT_THAT(host("ls_service").output, HasSubstr("\"?\\ 操作"));
}

// Off and on again, for everything that the machine lists.
TEST_F(SystemTest, RestoresExactlyWhatItSwitchedOff)
{
    std::string infos;
    std::string ids;
    std::istringstream listing(read("chkconfig-list.txt"));
    int count = 0;
    for (std::string line; std::getline(listing, line);) {
        std::string name;
        std::istringstream(line) >> name;
        name = name.substr(0, name.find(':'));
        if (!name.empty() && line.find("based") == std::string::npos) {
            infos +=
                "<info id='" + std::to_string(++count) + "' name='" + name + "' op='3' desc=''/>";
            ids += " " + std::to_string(count);
        }
    }
    ASSERT_EQ(count, 69 + 15);
    write_conf(infos);
    const std::string before = shell("cat etc/runlevels etc/xinetd.d/*").output;
    const std::size_t running = items("ls_service").size();
    EXPECT_EQ(items("optimize_service" + ids).size(), running);
    EXPECT_THAT(read("errors"), HasSubstr("chkconfig --level 12345 blk-availability off\n"));
    EXPECT_EQ(shell("chkconfig --list | grep -cw '[0-5]:on'").output, "0\n");
    EXPECT_EQ(shell("grep -L 'disable.*= yes' etc/xinetd.d/*").output, "");
    // With xinetd off its services are not listed any more: restore before listing again.
    EXPECT_EQ(items("restore_service" + ids).size(), running);
    EXPECT_EQ(shell("cat etc/runlevels etc/xinetd.d/*").output, before);
    EXPECT_EQ(items("ls_service").size(), running);
}

} // namespace
