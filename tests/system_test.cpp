// The real module, loaded by the real host, on a copy of the embedded machine.
#include "host/module.h"
#include "tests/workspace.h"

#include <dlfcn.h>
#include <future>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <thread>
#include <unistd.h>

using Json = nlohmann::json;
using testing::HasSubstr;

constexpr bool is_sanitized = SANITIZE[0] != '\0';

class SystemTest : public Workspace
{
protected:
    SystemTest()
    {
        install_machine();
        write("bin/optimize_host", "#!/bin/sh\nexec " HOST " \"$@\"\n");
        shell("chmod +x bin/optimize_host");
    }

    static std::string output_of(const std::string& command)
    {
        EXPECT_LE(shell(command), 1) << command << '\n' << read("errors");
        return read("output");
    }
    /// The replies of a call without the last one; all must be successes.
    static std::vector<Json> items(const std::string& arguments)
    {
        SCOPED_TRACE(arguments);
        std::vector<Json> replies;
        std::istringstream lines(output_of("optimize_host --json " + arguments));
        for (std::string line; std::getline(lines, line);) {
            replies.push_back(Json::parse(line));
            EXPECT_EQ(replies.back()["code"], "0x80000000");
        }
        EXPECT_EQ(replies.at(replies.size() - 1)["reply"], "final");
        replies.pop_back();
        return replies;
    }
};

TEST_F(SystemTest, ModuleExportsOneSymbolAndLinksNoFurtherLibraries)
{
    if (is_sanitized) {
        GTEST_SKIP() << "a sanitizer brings its own symbols and libraries";
    }
    EXPECT_EQ(output_of(NM " -D --defined-only " MODULE " | cut -d' ' -f2-"),
              "T rpc_ireal_Optimize_Option\n");
    // Only the framework and what the compiler links into every C++ program.
    const std::string usual = "lib(fwbase|stdc[+][+]|gcc_s|m|c|pthread)[.]so|ld-linux";
    EXPECT_EQ(output_of(READELF " -d " MODULE " | grep NEEDED | grep -vE '" + usual + "'"), "");
}

TEST_F(SystemTest, ListsTheMachineInAnyLocale)
{
    EXPECT_EQ(output_of("LC_ALL=C chkconfig --list"), read("chkconfig-list.txt"));
    EXPECT_THAT(output_of("LC_ALL=zh_CN.UTF-8 chkconfig --list"), HasSubstr("2:\xE5\xBC\x80"));
    setenv("LC_ALL", "zh_CN.UTF-8", 1);
    setenv("LANGUAGE", "zh_CN:zh", 1);
    const std::vector<Json> replies = items("ls_service");
    unsetenv("LC_ALL");
    ASSERT_EQ(replies.size(), 19U);
    EXPECT_THAT(replies[0].dump(), HasSubstr(R"("id":1,"level":"2345","name":"crond","op":0)"));
    EXPECT_THAT(replies[0].dump(), HasSubstr("计划任务服务"));
    EXPECT_EQ(replies[15]["services"][0]["op"], 1); // switched off earlier
}

TEST_F(SystemTest, AnswersOnTheCommandLine)
{
    const std::string final = R"({"reply":"final","result":"0x840C0000","code":"0x80000000")";
    shell("optimize_host ls_service"); // takes over what the configuration calls switched off
    write("nul", std::string("ls_reg\0x", 8));
    write("calls", "# calls\n\nget_optimize_num\nset_optimize_sorce x\nls_reg");
    const std::tuple<const char*, int, std::string, const char*> table[] = {
        {"get_optimize_num", 0, "3\n", "success (code 0x80000000)\n"},
        {"--json set_optimize_sorce 4294967295", 0, final + "}\n", ""},
        {"--json optimize_other 1 2", 0, final + ",\"ids\":[]}\n",
         "optimize_host: optimize_other: ids not handled: 1 2\n"},
        {"ignore_service on 15 2 2", 0, "        ID  NAME\n         2  atd\n",
         "ignore_service: sshd (15) is already ignored\n"},
        {"--json - <calls", 2,
         final + ",\"value\":3}\n" +
             R"({"reply":"none","error":"set_optimize_sorce: 'x' is not a number from )" +
             "0 to 4294967295; usage: set_optimize_sorce SCORE\"}\n" + final +
             ",\"services\":[]}\n",
         "optimize_host: standard input:4: set_optimize_sorce: 'x' is not a number"},
        {"- <nul", 2, "", "standard input:1: a NUL byte in the line"},
        {"- </", 3, "", "standard input: Is a directory"},
        {"frobnicate 1", 2, "",
         "optimize_host: 'frobnicate': no such operation; see optimize_host --help\n"},
        {"", 2, "", "the operation is missing"},
        {"-xj", 2,
         "{\"reply\":\"none\",\"error\":\"-x: no such option; see optimize_host --help\"}\n",
         "optimize_host: -x: no such option"},
        {"ls_reg --wait=x", 2, "", "--wait: 'x' is not a number"},
        {"-f --help --json", 2,
         "{\"reply\":\"none\",\"error\":\"-f: no such option; see optimize_host --help\"}\n", ""},
        {"--all", 2, "", "the operation is missing"},
        {"set_optimize_sorce", 2, "", "set_optimize_sorce: the score is missing"},
        {"ignore_service maybe 1", 2, "", "'maybe' is neither on nor off"},
        {"get_optimize_num 1", 2, "", "'1' is one argument too many"},
        {"set_optimize_sorce 4294967296", 2, "", "'4294967296' is not a number"},
        {"--module missing.so ls_service --json", 3,
         "{\"reply\":\"none\",\"error\":\"./missing.so: cannot open shared object file: No such "
         "file "
         "or directory\"}\n",
         "missing.so: cannot open"},
        {"-m " UNWILLING_MODULE " ls_reg", 3, "", ".so: init failed with code 0x0402000A"},
        {"--json -C missing get_optimize_num", 3,
         "{\"reply\":\"none\",\"error\":\"'missing': No such file or directory\"}\n",
         "optimize_host: 'missing': No such file or directory\n"},
        {"get_optimize_num 2>&-", 0, "3\n", ""},
        {"get_optimize_num >/dev/full", 3, "",
         "optimize_host: standard output: No space left on device\n"},
        {"- <calls >/dev/full", 3, "", "standard output: No space left"},
        {"--help >/dev/full", 3, "", "standard output: No space left"}};
    for (const auto& [arguments, status, output, message] : table) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(shell(std::string("optimize_host ") + arguments), status);
        EXPECT_EQ(read("output"), output);
        const std::string errors = read("errors");
        EXPECT_THAT(errors, HasSubstr(message));
        EXPECT_LE(std::count(errors.begin(), errors.end(), '\n'), 2); // the status and a message
        EXPECT_THAT(errors, testing::Not(HasSubstr(status == 3 ? "success" : "never")));
    }
    write("bin/chkconfig", "#!/bin/sh\ncat\n"); // must not read the calls
    const std::string input = "printf 'ls_service\\n#%5000s\\nls_reg\\n' | "; // beyond a buffer
    EXPECT_EQ(output_of(input + "optimize_host - 2>&1 | grep -c success"), "2\n");
    write(conf_path, "<kavra_conf>\n<oops>\n");
    EXPECT_EQ(shell("optimize_host --json get_optimize_num"), 1);
    EXPECT_THAT(read("output"), HasSubstr("\"code\":\"0x00000000\",\"error\":\"/"));
}

// Switches every service of the machine off and on again.
TEST_F(SystemTest, RestoresExactlyWhatItSwitchedOff)
{
    const std::string names = // of all services, once each
        "sed '/based/d; s/^\t//; s/[: \t].*//; /^$/d' chkconfig-list.txt | ";
    const std::string infos =
        output_of(names + R"(awk '{ printf "<info id=\"%d\" name=\"%s\" op=\"3\"/>", NR, $0 }')");
    const std::string ids = output_of(names + "awk '{ printf \" %d\", NR }'");
    ASSERT_THAT(ids, testing::EndsWith(" 84")); // 69 and 15
    write_conf(infos);
    const std::string before = output_of("cat etc/runlevels etc/xinetd.d/*");
    const std::size_t on = items("ls_service").size();
    // While xinetd is off, its services are not listed: three are switched, but not verified.
    EXPECT_EQ(items("optimize_service" + ids).size(), on - 3);
    EXPECT_THAT(read("errors"), HasSubstr("chkconfig --level 12345 blk-availability off\n"));
    EXPECT_EQ(output_of("chkconfig --list | grep -cw '[0-5]:on'"), "0\n");
    EXPECT_EQ(output_of("grep -L 'disable.*= yes' etc/xinetd.d/*"), "");
    EXPECT_EQ(items("restore_service" + ids).size(), on);
    EXPECT_EQ(output_of("cat etc/runlevels etc/xinetd.d/*"), before);
}

TEST_F(SystemTest, ThreadsDoNotDisturbOneAnother)
{
    const host::Module module(MODULE);
    const char* const names = "cacbapsn"; // the first letters of the services 1 to 8
    const auto work = [&module, names](const std::string& id) {
        const std::pair<std::string, std::string> table[] = {
            {"optimize_service " + id, "^" + id + " success$"},
            {"ls_service", "(^| )" + id + " " + names[id[0] - '1'] + "[a-z-]+ [^0-9]+ 1 "},
            {"set_optimize_sorce " + id, "^success$"},
            {"restore_service " + id, "^" + id + " success$"},
            {"get_optimize_sorce", "^[1-8] success$"},
            {"ignore_service on " + id, "^" + id + " success$"},
            {"ignore_service off " + id, "^" + id + " success$"}};
        for (int round = 0; round < 3; ++round) {
            for (const auto& [line, answer] : table) {
                EXPECT_THAT(call(module.interface(), line), testing::ContainsRegex(answer)) << line;
            }
        }
    };
    std::vector<std::future<void>> threads;
    for (int id = 1; id <= 8; ++id) {
        threads.push_back(std::async(std::launch::async, work, std::to_string(id)));
    }
    threads.clear(); // waits for them
    EXPECT_EQ(read("etc/runlevels"), read(SOURCE_DIR "/machine/etc/runlevels"));
}

// Once warm, the heap must grow by less than 16 bytes with each module and its calls.
TEST_F(SystemTest, StaysFlatAndLeavesNothingBehindWhenUnloaded)
{
#pragma GCC diagnostic ignored "-Wdeprecated-declarations" // its successor needs glibc 2.33
    const auto heap_after = [](int times) {
        // The cache of free blocks, which counts as in use, is emptied when a thread ends.
        std::thread([times] {
            for (int i = 0; i < times; ++i) {
                const host::Module module(MODULE);
                // The file has services in each state, which these must not handle.
                for (const char* const line :
                     {"get_optimize_sorce", "get_optimize_num", "ls_reg", "ls_other",
                      "optimize_reg 1 20 15", "optimize_other 1 20 15", "restore_reg 1 20 15",
                      "restore_other 1 20 15", "ignore_reg on 1 20 15", "ignore_other off 1"}) {
                    EXPECT_THAT(call(module.interface(), line),
                                testing::MatchesRegex("(85 |3 )?success"))
                        << line;
                }
            }
        }).join();
        EXPECT_EQ(dlopen(MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
        return is_sanitized ? 0 : mallinfo().uordblks; // it has its own heap and finds leaks
    };
    const int warm = heap_after(100);
    EXPECT_LT(heap_after(1000) - warm, 1000 * 16);
}
