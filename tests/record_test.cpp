// What a call leaves behind when the world around it fails, waits or changes, on the embedded
// machine.
#include "tests/system_calls.h"
#include "tests/workspace.h"
#include "transaction/private_file.h"
#include "transaction/transaction.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/file.h>
#include <unistd.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
#define CONF "config/system_operation/conf.xml"
#define LOCK CONF ".lock"
#define RECORD CONF ".record"

class RecordTest : public Workspace
{
protected:
    RecordTest()
    {
        setenv("H", HOST " --json", 1);
        reset();
    }

    /// Puts back the machine. chkconfig runs the file "listing" before it lists and "switching"
    /// before it switches; $REAL is the tool itself, and "pid" holds the program's if $K starts it.
    static void reset()
    {
        install_machine();
        write("bin/K", "#!/bin/sh\necho $$ >pid\nexec $H \"$@\"\n");
        shell("rm -f config/*/*.* old first; cp -p bin/chkconfig bin/real; chmod +x bin/K");
        shell(": >listing; : >switching");
        write("bin/chkconfig", "#!/bin/sh\nREAL=${0%/*}/real\ncd ${0%/*}/..\n[ $1 = --list ] && . "
                               "./listing || . ./switching\nexec \"$REAL\" \"$@\"\n");
        write_conf(R"(
            <info id="1" name="crond" op="3"/>
            <info id="3" name="cups" op="3" desc="d"/>
            <info id="15" name="sshd" op="3"/><info id="30" name="rsync" op="3"/>
            <info id="50" name="xinetd" op="3"/>
            )");
        shell("cp " CONF " old");
    }
    static void write_record(const std::string& lines) { write(RECORD, "# heading\n" + lines); }
    /// The lines of the record without their times.
    static std::string record()
    {
        shell("sed -n '/^#/!s/ [^ ]*$//p' " RECORD);
        return read("output");
    }
    static std::string machine()
    {
        shell("cat etc/runlevels etc/xinetd.d/*");
        return read("output");
    }
};

// The state of a line, what the listing shows, the state afterwards and that of the entry.
TEST_F(RecordTest, SettlesEveryLineByWhatTheListingShows)
{
    const std::pair<std::string, std::string> sights[] = {
        {"on", ":"},
        {"part", "bin/real --level 23 cups off"},
        {"off", "bin/real --level 2345 cups off"},
        {"unlisted", "sed -i /^cups/d etc/runlevels"}};
    for (const char* const row :
         {"off on none 0",           "off part partly 0",
          "off off off 1",           "off unlisted off 1",
          "switching-off on none 0", "switching-off part partly 0",
          "switching-off off off 1", "switching-off unlisted switching-off 1",
          "switching-on on none 0",  "switching-on part partly 0",
          "switching-on off off 1",  "switching-on unlisted switching-on 3",
          "partly on none 0",        "partly part partly 0",
          "partly off off 1",        "partly unlisted partly 1",
          "ignored on ignored 2",    "ignored part ignored 2",
          "ignored off ignored 3",   "ignored unlisted ignored 3"}) {
        SCOPED_TRACE(row);
        std::string state, sight, after, op;
        std::istringstream(row) >> state >> sight >> after >> op;
        const std::string levels = state == "ignored" ? " -" : " 2345";
        reset();
        write_record("cups " + state + levels + " 2026-11-25T10:17:10Z\n");
        for (const auto& [name, command] : sights) {
            ASSERT_EQ(name == sight ? shell(command) : 0, 0);
        }
        EXPECT_EQ(shell("$H ls_service"), 0);
        EXPECT_THAT(read("errors"), Not(HasSubstr("--level"))); // a listing switches nothing
        EXPECT_EQ(record(), after == "none" ? "" : "cups " + after + levels + "\n");
        EXPECT_THAT(read(CONF), HasSubstr("name=\"cups\" op=\"" + op));
    }
}

TEST_F(RecordTest, ForgetsNothing)
{
    const std::string off = "$H optimize_service cups rsync; ",
                      on = "$H restore_service cups rsync";
    const std::string list = "$H ls_service; ", good = ": >listing; : >switching; ";
    const std::string part = R"(echo '"$REAL" --level 23 cups off; exit 1' >switching; )";
    const auto kill = [](const std::string& when) {
        return "echo '" + when +
               "kill -9 $(cat pid); exit 1' >switching; K optimize_service cups; ";
    };
    const std::string swap = R"(sed -i 's/"3"/"x"/; s/"1"/"3"/; s/"x"/"1"/' )" CONF "; ";
    const struct {
        std::string steps;
        std::string output = R"("ids":[3],"names":["cups"]})"; // of the last call
        std::string errors = "";
        int status = 0;
        bool is_as_before = true; // the machine
    } table[] = {
        {off + "echo exit 1 >listing; " + list + good + list + on},
        {off + "echo '\"$REAL\" --list | head -c 900; exit' >listing; " + list + good + on},
        {off + "echo 'export LC_ALL=zh_CN' >listing; " + list + good + on},
        {off + "cp old " CONF "; " + list + on},
        {off + "rm " RECORD "; " + on, "cups", "cups is off, and the configuration marks it"},
        {off + "sed -i /cups/d " CONF "; " + list + "$H restore_service cups", "none",
         "cups: not configured; it was on in 2345", 1, false},
        {off + "sed -i /cups/d " CONF "; " + list + "cp old " CONF "; " + on},
        {off + "$H optimize_service xinetd; " + list + "$H restore_service cups rsync xinetd",
         "cups", "kept as optimized although chkconfig does not list them: rsync"},
        {part + off + good + off + on},
        {part + off, R"("reason":"command failed","message":"command failed; it is on in 45)",
         "it is on in 45 of 2345", 1, false},
        {part + off + good + list, "", "restore_service brings these back", 0, false},
        {kill("") + good + list + "$H restore_service cups", R"("unchanged":[{"id":3)"},
        {kill("\"$REAL\" \"$@\"; ") + good + list, "", "had switched cups off; it can be", 0,
         false},
        {kill("\"$REAL\" \"$@\"; ") + good + swap + on, R"("ids":[1],"names":["cups"]})"},
        {"echo '[ -e first ] && kill -9 $(cat pid); : >first' >listing; K optimize_service cups; " +
         good + list + on},
        {"mv " CONF " x; " + off + "mv x " CONF "; " + list, R"("op":0,"level":"2345"}])"},
        {"bin/real --level 2345 cups off; $H optimize_service cups; $H restore_service cups",
         R"("reason":"off")", "not switched off by this program", 1, false},
        {off + "bin/real --level 2345 cups on; $H optimize_service cups; " + on},
        {"printf 'disable\\t=\\tno\\n' >etc/xinetd.d/rsync; $H optimize_service rsync",
         R"("reason":"still on")", "the command succeeded, but it is still on with xinetd", 1,
         false},
        {"echo exit 0 >switching; $H optimize_service cups", R"("reason":"still on")",
         "still on in run levels 2345", 1},
        {"echo '[ ! -e first ] || exit 1; : >first' >listing; $H optimize_service cups",
         R"("reason":"not verified")", "not verified", 1, false},
        {"$H ignore_service on cups; $H restore_service cups; cp old " CONF
         "; $H optimize_service cups",
         R"("reason":"ignored")", "it is marked as ignored", 1},
        {"$H ignore_service on cups; bin/real --level 2345 cups off; " + list +
         "$H ignore_service off 3 3; bin/real --level 2345 cups on; $H optimize_service cups; " +
         "$H restore_service cups"},
        {"sed -i 's/<info id=\"1\"[^>]*>/<info id=\"4\" name=\"cups\"\\/>/' " CONF "; " + off +
             "cat " RECORD " >&2; $H restore_service 3 30",
         R"("ids":[4],"names":["cups"]})", "cups off 2345"},
        {"printf '#\ncups off 2345 2020-01-01T00:00:00Z\n' >" RECORD
         "; bin/real --level 23 cups off; " +
             off + "cat " RECORD " >&2; " + on,
         "cups", "cups off 2345 2020-01-01T00:00:00Z"},
        {"sed -i 's/1\" name=\"crond\" op=\"3/1\" name=\"cups\" op=\"2/; "
         "s/name=\"cups\" op=\"3\"/name=\"cups\" op=\"1\" level=\"2345\"/' " CONF
         "; bin/real --level 2345 cups off; " +
             on,
         R"("ids":[1],"names":["cups"]})"},
        {R"(sed -i 's/"crond"/"a b"/' )" CONF
         "; bin/real --level 3 crond off; $H optimize_service 1",
         R"("reason":"state 3")", "", 1, false},
        {R"(sed -i 's/"1"/"3"/' )" CONF "; $H optimize_service cups", "none",
         "'cups' and 'crond' have the same id 3", 1}};
    const std::string before = machine();
    for (const auto& row : table) {
        SCOPED_TRACE(row.steps);
        reset();
        EXPECT_EQ(shell(row.steps), row.status);
        EXPECT_THAT(read("output"), HasSubstr(row.output));
        EXPECT_THAT(read("errors"), HasSubstr(row.errors));
        EXPECT_EQ(machine() == before, row.is_as_before);
    }
}

TEST_F(RecordTest, RefusesADamagedRecord)
{
    const fwbase::Descriptor folder(open("config/system_operation", O_RDONLY));
    std::string calls;
    system_calls::trace = &calls;
    transaction::replace_file(folder.get(), RECORD, "");
    system_calls::trace = nullptr;
    EXPECT_THAT(calls, testing::MatchesRegex("fsync .*.conf.xml.record.tmp; renameat "
                                             "conf.xml.record; fsync .*/system_operation; "));
    const std::string line = "cups off 2345 2026-11-25T10:17:10Z\n", link = "is a link";
    const std::pair<std::string, std::string> table[] = {
        {line + "x", "record:3: "},
        {line + "\n" + line, "record:3: "},
        {line + line, "record:3: "},
        {"cups off - 2026-11-25T10:17:10Z\n", "record:2: "},
        {"cups off 26 2026-11-25T10:17:10Z\n", "record:2: "},
        {"cups ignored 3 2026-11-25T10:17:10Z\n", "record:2: "},
        {"cups on 3 2026-11-25T10:17:10Z\n", "record:2: "},
        {"cups off 3 2026-11-25 10:17:10Z\n", "record:2: "},
        {"cups  off 3 2026-11-25T10:17:10Z\n", "record:2: "},
        {line + "#", ""}};
    for (const auto& [lines, error] : table) {
        SCOPED_TRACE(lines);
        write_record(lines);
        const std::string before = read(RECORD), file = read(CONF);
        for (const std::string call : {"ls_service", "optimize_service cups", "restore_service 3",
                                       "ignore_service on cups", "-n restore_service 3"}) {
            EXPECT_EQ(shell("$H " + call) == 3, !error.empty()) << call;
            EXPECT_THAT(read("errors"), HasSubstr(error)) << call;
            EXPECT_THAT(read("errors"), Not(HasSubstr("2026"))) << call;
            EXPECT_EQ(read(RECORD) == before && read(CONF) == file, !error.empty()) << call;
        }
        EXPECT_EQ(shell("$H set_optimize_sorce 85"), 0);
    }
    reset();
    EXPECT_EQ(shell(": >x; ln -s ../../x config/system_operation/.conf.xml.record.tmp; "
                    "$H ignore_service on cups; [ ! -s x ]"),
              0); // left over
    EXPECT_EQ(record(), "cups ignored -\n");
    EXPECT_EQ(shell("yes '#' | head -c 16777217 >" RECORD "; $H ls_service"), 3);
    EXPECT_THAT(read("errors"), HasSubstr("conf.xml.record: too large"));
    for (const std::string kind : {"ln -s ../../x", "ln x", "mkfifo", "mkdir"}) {
        reset();
        EXPECT_EQ(shell(": >x; " + kind + " " RECORD "; $H ls_service"), 3) << kind;
        EXPECT_THAT(read("errors"), HasSubstr("conf.xml.record: ")) << kind;
    }
}

// A module whose replies are false: without a listing that confirms them, the record does not
// change.
TEST_F(RecordTest, BelievesTheModuleOnlyTogetherWithTheFile)
{
    using namespace transaction;
    std::string edit = ":";
    std::vector<Reply> listed;
    std::vector<Reply> handled;
    const auto make = [&](bool marks, bool flag) {
        Transaction work(
            CONF,
            [&](const std::string& operation, bool, const Ids&) {
                EXPECT_EQ(shell(operation == "ls_service" ? edit : ":"), 0);
                return operation == "ls_service" ? listed : handled;
            },
            [](const std::string&) {});
        return (marks ? work.ignore({3}, flag) : work.switch_services({3}, flag)).at(0).reason;
    };
    write_conf(R"(<info id="3" name="cups" op="0" level="2345"/>)");
    EXPECT_THROW(make(true, true),
                 std::runtime_error); // the file has more than it lists
    listed = {{3, "cups", none}};
    EXPECT_EQ(make(true, true), "not verified");
    EXPECT_EQ(record(), "");
    // Of two entries that no listing shows, one is handled.
    write_conf(R"(<info id="3" name="cups" op="3"/><info id="4" name="cups" op="3"/>)");
    write_record("cups off 2345 2026-11-25T10:17:10Z\n");
    listed = {};
    handled = {{3, "", 0}};
    edit = "sed -i 's/op=\"1/op=\"3/g' " CONF;
    EXPECT_EQ(make(false, true), "command failed");
    EXPECT_EQ(record(), "cups off 2345\n");
}

TEST_F(RecordTest, ADryRunWritesNothing)
{
    const std::string tree =
        "find . ! -name errors ! -name output -exec ls -ld {} + ; cat " CONF " etc/*";
    for (const std::string other : {"", "$H optimize_service cups; "}) {
        shell(other + ":");
        shell(tree);
        const std::string before = read("output");
        EXPECT_EQ(shell("$H -n optimize_service cups rsync"), 0);
        EXPECT_THAT(read("output"), HasSubstr(R"("ids":[30],"names":["rsync"]})"));
        EXPECT_THAT(read("output"), HasSubstr(other.empty() ? R"("ids":[3],"names":["cups"]})"
                                                            : R"("unchanged":[{"id":3,)"));
        EXPECT_EQ(shell("$H -n ignore_service on crond; $H -n ls_service; "
                        "$H -n restore_service cups; $H -n set_optimize_sorce 1; "
                        "$H -n add_service x; $H -n remove_service sshd"),
                  0);
        shell(tree);
        EXPECT_EQ(read("output"), before);
    }
}

TEST_F(RecordTest, CarriesACallToItsEnd)
{
    write("switching",
          "readlink /proc/$$/fd/100 >seen; cat " RECORD " >>seen; wc -c <" LOCK " >>seen\n"
          "for name in HUP INT QUIT TERM; do kill -$name 0; done\n");
    EXPECT_EQ(shell("setsid -w env --ignore-signal=CHLD " HOST " --json optimize_service 3 99 3"),
              1);
    EXPECT_THAT(read("output"), HasSubstr(R"("not_handled":[{"id":99,"reason":"not configured")"));
    EXPECT_THAT(read("seen"), testing::ContainsRegex("/" LOCK "\n#.*\ncups switching-off .*\n0\n"));
    shell(": >switching; $H restore_service 3 2>&1 | true"); // nobody reads its messages
    EXPECT_EQ(record(), "");
    EXPECT_EQ(shell("trap '' XFSZ; ulimit -f 0; $H optimize_service 3"), 3); // cannot save
    EXPECT_THAT(read("errors"), Not(HasSubstr("--level")));
    if (SANITIZE[0] == '\0') { // a sanitizer must be loaded first
        write("calls", "set_optimize_sorce 1\nset_optimize_sorce 1\n");
        EXPECT_EQ(shell("LD_PRELOAD=" UNWILLING_MODULE " " HOST " - <calls"), 0);
        EXPECT_THAT(read("errors"), AllOf(HasSubstr("input:1: set_optimize_sorce: /"),
                                          HasSubstr("lock: the file system cannot lock; do not"),
                                          Not(HasSubstr("input:2:"))));
    }
    EXPECT_EQ(shell("cd config/*/; mv conf.xml ../../x; ln -s ../../x conf.xml"), 0);
    EXPECT_EQ(shell(HOST " set_optimize_sorce 1; [ -f x.lock ]"), 0); // beside the real file
}

TEST_F(RecordTest, OnlyWritingCallsWait)
{
    const int lock = open(LOCK, O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    ASSERT_EQ(flock(lock, LOCK_SH), 0);
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
                            HasSubstr("conf.xml.lock: waiting for another call to end; process " +
                                      std::to_string(getpid()))));
    EXPECT_EQ(unlink(LOCK), 0); // the call must notice that its file has lost the name
    close(lock);
    std::getline(out, text);
    EXPECT_EQ(text, "success (code 0x80000000)");
    EXPECT_EQ(access(LOCK, F_OK), 0);
    terminate(out); // between calls
}

// Calls under random trouble: whatever happens, each service comes back in exactly its run levels,
// only requested services are switched, and a mark is never lost.
TEST_F(RecordTest, SurvivesRandomTrouble)
{
    const std::string before = machine();
    std::mt19937 random(1); // NOLINT: the same trouble each time
    const auto one_of = [&random](const std::vector<std::string>& all) {
        return all[random() % all.size()];
    };
    for (int round = 0; round < 6; ++round) {
        reset();
        shell("$H ls_service; $H ignore_service on sshd; cp " CONF " old");
        std::string story;
        for (int step = 0; step < 6; ++step) {
            const std::string name = one_of({"cups", "rsync", "crond"});
            write("listing", one_of({"", "", "", "exit 1\n", "export LC_ALL=zh_CN\n",
                                     "\"$REAL\" --list | head -c 600; exit\n"}));
            write("switching", one_of({"", "", "exit 0\n", "kill -9 $(cat pid)\n",
                                       "\"$REAL\" --level 23 \"$3\" \"$4\"; exit 1\n",
                                       "\"$REAL\" \"$@\"; kill -9 $(cat pid)\n"}));
            const std::string call =
                one_of({":", "cp old " CONF "; :", "$H optimize_service sshd; :"}) + "; K " +
                one_of({"ls_service", "optimize_service " + name, "restore_service " + name});
            story += call + "\n" + read("listing") + read("switching");
            shell(call);
            EXPECT_THAT(read("errors"), Not(testing::ContainsRegex(
                                            call.find("_service " + name) == std::string::npos
                                                ? "--level [0-9]* "
                                                : "--level [0-9]* (sshd|xinetd)")))
                << story;
        }
        write("listing", "");
        write("switching", "");
        shell("$H ls_service; $H restore_service cups rsync crond");
        EXPECT_EQ(machine(), before) << story;
        EXPECT_THAT(record(), testing::StartsWith("sshd ignored -\n")) << story;
    }
}
