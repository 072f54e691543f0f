// What an administrator does beside switching: candidates, history, waiting, the terminal.
#include "host/operation.h"
#include "host/options.h"
#include "host/search_path.h"
#include "host/text.h"
#include "tests/workspace.h"

#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
#define CONF "config/system_operation/conf.xml"

class AdministrationTest : public Workspace
{
protected:
    AdministrationTest()
    {
        install_machine();
        setenv("H", HOST " --json", 1);
        write_conf(R"(
            <info id="3" name="cups" op="3"/>
            <!-- cups -->
            <info id="-4" name="sshd" op="3"/>
            <info id="30" name="rsync" op="3"/>
            )");
        shell("cp " CONF " old");
    }
};

TEST_F(AdministrationTest, EditsTheCandidates)
{
    const std::string added = "\n            <info id=\"31\" name=\"atd\" op=\"3\" level=\"off\" "
                              "xinetd=\"0\" desc=\"a  &lt;b&gt; 打印\"/>\n            </service",
                      invalid = "has a character that commands cannot take",
                      off = "it is switched off, and was on in 2345: restore_service cups first";
    const struct {
        std::string steps;
        int status = 0;
        std::string output = "";
        std::string errors = "";
        std::string file = "";
    } table[] = {
        {"$H add_service atd 'a  <b>' 打印", 0,
         "{\"reply\":\"item\",\"ids\":[31],\"names\":[\"atd\"]}\n{\"reply\":\"final\"}\n", "",
         added},
        {"echo 'add_service  atd a <b> 打印' | $H -; $H remove_service atd; diff " CONF " old"},
        {"$H add_service cups x; diff " CONF " old", 0,
         "{\"reply\":\"final\",\"unchanged\":[{\"id\":3,\"name\":\"cups\"}]}\n",
         "already configured"},
        {"$H add_service 12", 2, "none", "'12' is an id, not a name; usage: add_service NAME"},
        {"$H add_service 'a;b'", 1, "none", invalid},
        {"$H add_service a/b", 1, "none", invalid},
        {"$H add_service -- -a", 1, "none", "'-a' is not a valid name of a service"},
        {"$H add_service $(printf %0201d 0)x", 1, "none", "is longer than 200 bytes"},
        {"$H add_service atd $(printf '\\377')", 1, "none", "not UTF-8"},
        {"sed -i s/-4/2147483647/ " CONF "; $H add_service atd", 1, "",
         "no id is free: the configuration has the largest one, 2147"},
        {"sed -i s/service_optimize/x/ " CONF "; $H add_service atd", 1, "",
         "conf.xml: the element service_optimize is missing"},
        {"sed -i s/optimize_num/x/g " CONF "; $H get_optimize_num", 1,
         "conf.xml: the element myself_config/optimize_num is missing", "/" CONF ": the element"},
        {"$H add_service atd; $H optimize_service atd; $H restore_service 31", 0, "[\"atd\"]"},
        {"$H remove_service cups nosuch", 0,
         "{\"reply\":\"item\",\"ids\":[3],\"names\":[\"cups\"]}\n"
         "{\"reply\":\"final\",\"unchanged\":[{\"name\":\"nosuch\"}]}\n",
         "nosuch is not configured", "optimize>\n            <!-- cups -->\n"},
        {"sed -i /info/d " CONF "; $H add_service atd", 0, "\"ids\":[1]"},
        {"$H remove_service 3", 2, "none", "'3' is an id, not a name"},
        {"$H optimize_service cups; $H remove_service cups sshd", 1,
         R"("not_handled":[{"id":3,"name":"cups","reason":"optimized")", off,
         "name=\"cups\" op=\"1"},
        {"$H optimize_service cups; rm config/*/*.record; $H remove_service cups", 1, "", off},
        {"$H optimize_service cups; sed -i /cups/d " CONF "; $H remove_service cups", 1,
         R"([{"name":"cups","reason":"optimized","message":"not configured; it was on in 2345)"},
        {"sed -i 's/service_optimize/x/g' " CONF "; $H ls_service", 0, "",
         "no service is configured; the element service_optimize is missing"},
        {"$H ignore_service on cups; cp config/*/*.record r; $H remove_service cups; cp r " CONF
         ".record; $H add_service cups; $H ls_service",
         0, R"("id":31,"name":"cups","desc":"","op":0,"level":"2345")"},
        {"$H ignore_service on cups; $H remove_service cups; $H add_service cups; $H ls_service", 0,
         R"("id":31,"name":"cups","desc":"","op":0,"level":"2345")"}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.steps);
        install_machine();
        shell("rm -f config/*/*.record; cp old " CONF);
        EXPECT_EQ(shell(row.steps), row.status);
        EXPECT_THAT(read("output"), HasSubstr(row.output));
        EXPECT_THAT(read("errors"), HasSubstr(row.errors));
        EXPECT_THAT(read(CONF), HasSubstr(row.file));
    }
}

TEST_F(AdministrationTest, KeepsAHistory)
{
    EXPECT_EQ(shell("$H optimize_service cups rsync; $H ignore_service on sshd; $H "
                    "optimize_service sshd; chkconfig --level 23 "
                    "cups on; $H ls_service; sed -i /rsync/d " CONF "; $H switched; " HOST
                    " switched"),
              0);
    const std::string time = "20[0-9-]+T[0-9:]+Z";
    EXPECT_THAT(
        read("output"),
        testing::ContainsRegex(
            "\\{\"reply\":\"item\",\"name\":\"cups\",\"state\":\"partly\",\"level\":\"2345\","
            "\"since\":\"" +
            time +
            "\"}\n.*\"rsync\",\"state\":\"off\",\"level\":\"on\",.*\n"
            ".*\"sshd\",\"state\":\"ignored\",\"level\":\"-\",.*\n\\{\"reply\":\"final\"}\n"
            "NAME +STATE +LEVELS +SINCE\ncups +partly +2345 +" +
            time + "\n"));
    EXPECT_EQ(shell("echo restore_service --all | $H -"), 1);
    EXPECT_THAT(
        read("output"),
        AllOf(HasSubstr("\"names\":[\"cups\"]}\n"),
              HasSubstr("\"not_handled\":[{\"name\":\"rsync\",\"reason\":\"not configured\"")));
    EXPECT_THAT(read("errors"),
                HasSubstr("rsync not handled: not configured; it was on with xinetd: "
                          "add_service rsync, then restore_service rsync\n"));
    EXPECT_EQ(
        shell("$H add_service rsync; " HOST " restore_service --all; $H restore_service --all"), 0);
    EXPECT_THAT(read("errors"), HasSubstr("restore_service: nothing is switched off\n"));
    EXPECT_EQ(shell("cat etc/runlevels etc/xinetd.d/* >now; cd " SOURCE_DIR
                    "/machine; cat etc/runlevels "
                    "etc/xinetd.d/* | diff - $OLDPWD/now"),
              0);
    EXPECT_EQ(shell("$H -n optimize_service cups; sed 's/, by .*//' log"), 0);
    EXPECT_THAT(read("output"),
                testing::EndsWith("optimize_host: cups switched off, was on in 2345\n"
                                  "optimize_host: rsync switched off, was on with xinetd\n"
                                  "optimize_host: cups switched back on, in 2345\n"
                                  "optimize_host: rsync switched back on, with xinetd\n"));
}

// A name of digits is no id, and what the record does not know is taken over first.
TEST_F(AdministrationTest, RestoresAll)
{
    EXPECT_EQ(shell("sed -i 's/name=\"cups/name=\"30/' " CONF
                    "; sed -i 's/^cups/30/' etc/runlevels; "
                    "$H optimize_service 3 rsync; rm " CONF ".record; $H restore_service --all"),
              0);
    EXPECT_THAT(read("output"), AllOf(HasSubstr("[\"30\"]"), HasSubstr("[\"rsync\"]")));
    for (const std::string call : {"optimize_service --all", "restore_service --all cups",
                                   "add_service --all x", "-- - --all"}) {
        EXPECT_EQ(shell("$H " + call), 2) << call;
    }
}

// The log tells what may have been switched, and what a killed call has switched.
TEST_F(AdministrationTest, LogsWhatWentWrong)
{
    shell("mv bin/chkconfig bin/real");
    write("bin/chkconfig",
          "#!/bin/sh\n[ $1 = --list ] || . ./switching\nexec ${0%/*}/real \"$@\"\n");
    write("bin/K", "#!/bin/sh\necho $$ >pid\nexec $H \"$@\"\n");
    EXPECT_EQ(
        shell("chmod +x bin/chkconfig bin/K; echo exit 1 >switching; $H optimize_service cups; "
              "echo 'real \"$@\"; kill -9 $(cat pid)' >switching; K optimize_service cups; "
              ": >switching; $H switched && $H ls_service && $H ls_service; sed 's/, by [^a].*//' "
              "log"),
        0);
    EXPECT_THAT(
        read("output"),
        testing::EndsWith("optimize_host: cups not switched off: command failed; it is still on "
                          "in run levels 2345\noptimize_host: cups switched off, was on in "
                          "2345, by an interrupted call\n"));
}

TEST_F(AdministrationTest, WaitsNoLongerThanItIsTold)
{
    shell("$H ls_service; mkfifo fifo");
    const int lock = open(CONF ".lock", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const std::string held = "conf.xml.lock: another call has not ended",
                      holder = "; process " + std::to_string(getpid()) + " (";
    for (const std::string call : {"ls_service", "-n ls_service", "add_service x",
                                   "remove_service cups", "set_optimize_sorce 1"}) {
        EXPECT_EQ(shell("timeout 60 $H --wait 0 " + call), 3) << call;
        EXPECT_THAT(read("output"), AllOf(HasSubstr(held + holder), HasSubstr("\"none\""))) << call;
    }
    // An operation that nobody knows may write.
    const std::string unknown = "WILLING=1 timeout 60 $H -m " UNWILLING_MODULE " make_tea --wait 0";
    EXPECT_EQ(shell(unknown), 3);
    EXPECT_THAT(read("output"), HasSubstr(held + holder));
    EXPECT_EQ(shell(unknown + " -n"), 1);
    EXPECT_THAT(read("output"), HasSubstr("cannot be combined with --dry-run"));
    EXPECT_EQ(shell("timeout 60 $H --wait 1 ls_service"), 3);
    EXPECT_THAT(read("errors"), HasSubstr(held + " within 1 s" + holder));
    // Nobody reads its output.
    EXPECT_EQ(shell("{ timeout 60 $H ls_service; echo $? >status; } | true; cat status"), 0);
    EXPECT_EQ(read("output"), "3\n");
    EXPECT_THAT(read("errors"), HasSubstr("standard output: nobody reads it any more\n"));
    EXPECT_EQ(shell("{ { echo ls_service; echo switched; } | timeout 60 " HOST
                    " - 2>&3; } 3>seen | true"),
              0);
    EXPECT_THAT(read("seen"), Not(HasSubstr("success")));        // the next call is not made
    EXPECT_EQ(shell("$H switched && $H get_optimize_sorce"), 0); // do not wait
    close(lock);
    EXPECT_EQ(shell("$H --wait 0 ls_service"), 0);
    EXPECT_EQ(shell(unknown), 3);
    EXPECT_THAT(read("output"), HasSubstr("{\"reply\":\"none\",\"result\":\"0x00000000\"}"));
}

TEST_F(AdministrationTest, ShowsWhatFitsATerminal)
{
    EXPECT_EQ(host::display_width("a\xCC\x81\xE6\x89\x93\xF0\x9F\x98\x80\xFF"), 6U);
    EXPECT_EQ(shell("cp " SOURCE_DIR "/machine/" CONF " " CONF), 0);
    const auto screen_of = [](const std::string& command) {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        const winsize size = {24, 61, 0, 0};
        EXPECT_EQ(unlockpt(terminal) + ioctl(terminal, TIOCSWINSZ, &size), 0);
        EXPECT_EQ(shell("(" + command + ") >" + ptsname(terminal) + " 2>&1"), 0);
        std::string screen;
        for (char character = 0; ::read(terminal, &character, 1) == 1;) {
            screen += character == '\r' ? "" : std::string(1, character);
        }
        close(terminal);
        return screen;
    };
    const std::string list = "NO_COLOR=1 " HOST " ls_service";
    EXPECT_THAT(screen_of(list), HasSubstr("atd                   0 none       345     一次…\n"));
    EXPECT_THAT(screen_of("stty cols 22 <&1; " + list),
                HasSubstr("\n         2  atd\n         3  cups\n"));
    EXPECT_THAT(screen_of(list + " --full"), HasSubstr("不使用 at 命令时可以关闭。\n"));
    EXPECT_EQ(screen_of("export TERM=xterm; " HOST " ls_reg"),
              "\x1B[32msuccess\x1B[0m (code 0x80000000)\n");
    EXPECT_EQ(shell(HOST " " + std::string(199, 'x') + "打印"), 2);
    EXPECT_EQ(read("errors"), "optimize_host: '" + std::string(199, 'x') +
                                  "...': no such operation; see optimize_host --help\n");
}

TEST_F(AdministrationTest, FindsItsTools)
{
    EXPECT_EQ(host::complete_search_path("/a:/usr/sbin", ""), "/a:/usr/sbin:/sbin");
    EXPECT_THAT(host::complete_search_path(":a", ""),
                testing::MatchesRegex("/.*/[.]:/.*/a:/usr/sbin:/sbin"));
    EXPECT_THAT(host::complete_search_path(nullptr, "/u"), HasSubstr("/u:/usr/bin"));
    EXPECT_EQ(host::complete_search_path("/a:/bin/:/b", "/u"), "/a:/u:/bin/:/b:/usr/sbin:/sbin");
    EXPECT_EQ(host::complete_search_path("/a", "/u"), "/a:/u:/usr/sbin:/sbin");
    EXPECT_NO_THROW(host::require_command("chkconfig", "/nowhere:bin"));
    EXPECT_EQ(shell("mkdir folder folder/chkconfig; chmod -x bin/chkconfig"), 0);
    try {
        host::require_command("chkconfig", "folder:bin");
        ADD_FAILURE() << "found a folder, or a file that cannot be executed";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no chkconfig on the search path folder:bin");
    }
    if (geteuid() != 0) {
        EXPECT_EQ(shell("chmod 0 " CONF "; $H get_optimize_sorce"), 1);
        EXPECT_THAT(read("errors"), HasSubstr("Permission denied; run as root\n"));
    }
}

TEST_F(AdministrationTest, DescribesEveryOperation)
{
    std::string manual = read(SOURCE_DIR "/packaging/optimize_host.1");
    for (const char* const markup :
         {"\\fR", "\\fP", "\\|", " \"", "\"", "\\"}) { // as it is displayed
        for (std::size_t at = 0; (at = manual.find(markup)) != std::string::npos;) {
            manual.erase(at, std::strlen(markup));
        }
    }
    const auto completions = [](const std::string& words) {
        shell("bash -c 'source " SOURCE_DIR "/packaging/completion.bash; COMP_WORDS=(_ " + words +
              " \"\"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _optimize_host; "
              "printf \" %s \" \"${COMPREPLY[@]}\"'");
        return read("output");
    };
    std::istringstream lines(host::help());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
    write_conf(R"(<info id="1" name="s0" op="0"/><info id="2" name="s1" op="1"/>
                  <info id="3" name="s2" op="2"/>)");
    for (const host::Operation& each : host::all_operations()) {
        SCOPED_TRACE(each.name);
        const std::string usage = std::string(each.name) + each.arguments;
        EXPECT_THAT(completions(""), HasSubstr(std::string(" ") + each.name + " "));
        if (each.summary != nullptr) {
            EXPECT_THAT(host::help(), HasSubstr("\n  " + usage + " "));
            EXPECT_THAT(manual, testing::AnyOf(HasSubstr("\n.B " + usage + "\n"),
                                               HasSubstr("\n.BI " + usage + "\n")));
        }
        if (each.from != host::Operation::same) {
            const bool has_flag = each.to == 2;
            const auto state = [](int op) { return " s" + std::to_string(op) + "  "; };
            EXPECT_EQ(completions(std::string(each.name) + (has_flag ? " on" : "")),
                      state(each.from) + std::to_string(each.from + 1) + " ");
            EXPECT_EQ(completions(std::string(each.name) + " off") ==
                          state(each.to) + std::to_string(each.to + 1) + " ",
                      has_flag);
        }
    }
}
