// Calls that were interrupted, wait for one another or are refused, on the embedded machine.
#include "tests/workspace.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
#define LOCK "config/system_operation/conf.xml.lock"

class JournalTest : public Workspace
{
protected:
    JournalTest() { reset(); }

    /// Puts back the machine and adds an entry for xinetd. chkconfig runs "hook" before it
    /// switches.
    static void reset()
    {
        install_machine();
        shell(R"(sed -i 's|</ser|<info id="50" name="xinetd" op="0" level="345"/>\n&|' */*/*.xml)");
        shell("rm -f config/*/*.lock; cp -p bin/chkconfig bin/real; : >hook");
        write("bin/chkconfig", "#!/bin/sh\n[ $1 = --list ] || . ./hook\n\"${0%/*}/real\" \"$@\"\n");
    }
    /// The ids of the services that are recorded as switched off, each followed by a blank.
    static std::string optimized()
    {
        shell(R"(awk -F '"' '$6 == "1" { printf "%s ", $2 }' config/*/conf.xml)");
        return read("output");
    }
};

TEST_F(JournalTest, CompletesWhatHadBegun)
{
    const std::string one = "optimize_service 1\nend\n";
    const std::string off = "chkconfig --level 2345 crond off; ";
    const std::string done = "set_optimize_sorce: completed the interrupted optimize_service 1";
    const std::string keep = "; to give up, remove ";
    const struct {
        const char* name;
        std::string journal, before; // what comes before the call
        int status;
        std::string errors, optimized;
    } table[] = {
        {"none", "", off, 0, "^$", "20 "},
        {"begun", "optimize_service 2 1 1\nend\n", off, 0, done + "\n", "1 20 "},
        {"some levels", one, "chkconfig --level 2 crond off; ", 0, done + "\n", "1 20 "},
        {"cut off", "optimize_service 1\nend", off, 0, "^$", "20 "},
        {"done", "optimize_service 20\nend\n", off, 0, "^$", "20 "},
        {"by hand", one, off + "chkconfig --level 2345 crond on; ", 0, "^$", "20 "},
        {"on", "restore_service 1 20\nend\n", off + "chkconfig --level 3 snmpd on; ", 0, " 20\n",
         ""},
        {"gone", "optimize_service 99 25 1\nend\n", off, 0, done + "; not listed by", "1 20 "},
        {"both", "optimize_service 50 30\nend\n", "chkconfig --level 345 xinetd off; ", 0,
         " 50 30\n", "20 30 50 "},
        {"relative PATH", one, off + "PATH=bin:/usr/bin:/bin ", 0, done + "\n", "1 20 "},
        {"failing", one, off + "echo exit 1 >hook; ", 3, "service 1 failed" + keep, "20 "},
        {"no list", one, off + ": >etc/runlevels; ", 3, "listing of chkconfig" + keep, "20 "},
        {"no chkconfig", one, off + "PATH=/x ", 3, "on the search path" + keep, "20 "},
        {"damaged", one, "sed -i '$d' config/*/conf.xml; ", 1, "conf.xml:", "20 "},
        {"no journal", "ls_service\nend\n", off, 3, "not a journal" + keep, "20 "},
        {"a name", "optimize_service crond\nend\n", off, 3, "not a journal" + keep, "20 "},
        {"link", one, "mv config/*/*.lock x; ln -s ../../x " LOCK "; ", 3, "is a link", "20 "},
        {"two names", one, "ln -f config/*/*.lock x; ", 3, "has another name", "20 "},
        {"foreign", "", std::string(geteuid() == 0 ? "chown" : "chmod") + " 1 " LOCK "; ", 3,
         geteuid() == 0 ? "belongs to another user" : "cannot open: ", "20 "}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        reset();
        write(LOCK, row.journal);
        EXPECT_EQ(shell(row.before + HOST " --json set_optimize_sorce 1"), row.status);
        EXPECT_THAT(read("errors"), testing::ContainsRegex(row.errors));
        EXPECT_EQ(read(LOCK), row.status == 0 ? "" : row.journal);
        EXPECT_EQ(optimized(), row.optimized);
    }
}

TEST_F(JournalTest, CarriesACallToItsEnd)
{
    EXPECT_EQ(shell("trap '' XFSZ; ulimit -f 4; " HOST " optimize_service 1"), 1); // cannot save
    EXPECT_EQ(read(LOCK), "optimize_service 1\nend\n");
    write("hook", "{ readlink /proc/$$/fd/100; cat config/*/*.lock; } >seen\n"
                  "for name in HUP INT QUIT TERM; do kill -$name 0; done\n");
    EXPECT_EQ(shell("setsid -w env --ignore-signal=CHLD " HOST " --json optimize_service 2 99"), 1);
    EXPECT_THAT(
        read("output"),
        EndsWith("\"ids\":[],\"not_handled\":[{\"id\":99,\"reason\":\"not configured\"}]}\n"));
    EXPECT_THAT(read("errors"), HasSubstr("completed the interrupted optimize_service 1\n"));
    EXPECT_THAT(read("seen"), EndsWith("/" LOCK "\noptimize_service 2 99\nend\n"));
    shell(": >hook; " HOST " restore_service 1 2 20 2>&1 | true"); // nobody reads its messages
    EXPECT_EQ(read(LOCK), "");
    EXPECT_EQ(optimized(), "");
    EXPECT_EQ(shell("chmod -x bin/chkconfig; PATH=bin " HOST " --json ls_service"), 3);
    EXPECT_THAT(read("output"), HasSubstr(R"({"reply":"none","error":"no chkconfig on the)"));
    if (SANITIZE[0] == '\0') { // a sanitizer must be loaded first
        write("calls", "set_optimize_sorce 1\nset_optimize_sorce 1\n");
        EXPECT_EQ(shell("LD_PRELOAD=" UNWILLING_MODULE " " HOST " - <calls"), 0);
        EXPECT_THAT(read("errors"), AllOf(HasSubstr("input:1: set_optimize_sorce: /"),
                                          HasSubstr("lock: the file system cannot lock; do not"),
                                          testing::Not(HasSubstr("input:2:"))));
    }
    EXPECT_EQ(shell("cd config/*/; mv conf.xml ../../x; ln -s ../../x conf.xml"), 0);
    EXPECT_EQ(shell(HOST " set_optimize_sorce 1; [ -f x.lock ]"), 0); // beside the real file
}

TEST_F(JournalTest, OnlyWritingCallsWait)
{
    const int lock = open(LOCK, O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(shell("chmod 0 " LOCK "; chmod 0555 config/*"), 0);
    for (const std::string call : {"get_optimize_sorce", "ls_reg", "operations", "attributes"}) {
        EXPECT_EQ(shell("timeout 60 " HOST " --json " + call), 0) << call;
        EXPECT_THAT(read("output"), HasSubstr("{\"reply\":\"final\"")) << call;
    }
    EXPECT_EQ(shell("chmod 0755 config/*; chmod 0600 " LOCK "; mkfifo in out"), 0);
    const auto start = [](const std::string& arguments) {
        shell("{ sh -c 'echo $$ >pid; exec " HOST " " + arguments + "'; echo $?; } >out 2>&1 &");
        return std::ifstream("out");
    };
    const auto terminate = [](std::ifstream& out) {
        EXPECT_EQ(kill(std::stoi(read("pid")), SIGTERM), 0);
        std::string text;
        std::getline(out, text, '\0');
        EXPECT_THAT(text, EndsWith(std::to_string(128 + SIGTERM) + "\n"));
    };
    std::string text;
    std::ifstream waiting = start("set_optimize_sorce 8");
    std::getline(waiting, text);
    terminate(waiting);
    std::ifstream out = start("- <in");
    std::ofstream in("in");
    in << "set_optimize_sorce 7" << std::endl;
    std::getline(out, text);
    EXPECT_THAT(text, AllOf(HasSubstr("input:1: set_optimize_sorce: /"),
                            EndsWith("conf.xml.lock: waiting for another call to end")));
    EXPECT_EQ(unlink(LOCK), 0); // the call must notice that its file has lost the name
    close(lock);
    std::getline(out, text);
    EXPECT_EQ(text, "success (code 0x80000000)");
    EXPECT_EQ(access(LOCK, F_OK), 0);
    terminate(out); // between calls
}

} // namespace
