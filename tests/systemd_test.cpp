// Units below a root folder of their own, and the real systemctl for what it says of them.
#include "systemd/listing.h"
#include "systemd/switching.h"
#include "tests/system_calls.h"
#include "tests/workspace.h"

#include <algorithm>
#include <filesystem>
#include <random>
#include <sstream>
#include <sys/wait.h>

namespace fs = std::filesystem;
using std::string;
using testing::HasSubstr;

static int calls_left; // before a call is struck; 0 is none
static bool is_crash;

/// Ends the process before a system call, or makes the call fail.
static int strike(const string& call)
{
    if (system_calls::trace != nullptr && call == "unlinkat") {
        *system_calls::trace += call + "; ";
    }
    if (calls_left == 0 || --calls_left != 0) {
        return 0;
    }
    return is_crash ? _exit(9), 0 : EIO;
}

#define UNITS "root/usr/lib/systemd/system/"
#define ETC "root/etc/systemd/system/"
#define RECORDS "root/var/lib/optimize_option/links/"

struct SystemdTest : Workspace {
    SystemdTest()
    {
        for (const char* const folder :
             {UNITS "dropped.service.d", ETC, "root/opt", "root/var/lib"}) {
            fs::create_directories(folder);
        }
    }
    ~SystemdTest() override { system_calls::before = nullptr; }

    void SetUp() override
    {
        if (shell("command -v systemctl") != 0) {
            GTEST_SKIP() << "there is no systemctl";
        }
        system_calls::before = strike;
        std::istringstream files(R"(
            cups.service Also=cups.socket \; cups.path;Alias=printing.service;WantedBy=a.target
            cups.socket WantedBy=sockets.target;Also=cups.service
            cups.path WantedBy=a.target
            log.service WantedBy=a.target;Alias=syslog.service
            getty@.service WantedBy=getty.target;DefaultInstance=tty1
            telnet@.service
            telnet.socket WantedBy=sockets.target
            tunnel.service RequiredBy=network.target
            by-hand.service Also=masked.service
            virtlog.service Also=virtlog.socket virtlog-admin.socket
            virtlog.socket WantedBy=sockets.target
            virtlog-admin.socket WantedBy=sockets.target
            trim.timer WantedBy=timers.target
            dropped.service
            dropped.service.d/more.conf WantedBy=a.target;Also=trim.timer
            dropped.service.d/more.conf.old Also=telnet.socket
            dev-disk\x2did.swap WantedBy=a.target
            masked.service WantedBy=a.target
            never.service WantedBy=a.target
            ../../../../opt/linked.service WantedBy=a.target)");
        for (string name, install; files >> name;) {
            std::getline(files, install);
            std::replace(install.begin(), install.end(), ';', '\n');
            write(UNITS + name, "[Unit]\nAlso=tunnel.service\n[Install]\n" + install + "\n");
        }
        ASSERT_EQ(shell("E=" ETC " U=" UNITS R"(
            S="env SYSTEMCTL_SKIP_SYSV=1 systemctl --root=$PWD/root"
            ln -s log.service $U/old.service
            ln -s old.service $U/older.service
            $S enable cups log getty@tty1 getty@tty3 telnet.socket tunnel virtlog masked dropped \
                /opt/linked.service && $S mask masked && mkdir $E/mine.target.wants &&
                cd $E/mine.target.wants && U=/usr/lib/systemd/system &&
                ln -s ../../../..$U/by-hand.service . && ln -s $U/older.service . &&
                ln -s $U/log.service journal.service &&
                ln -s $U/virtlog-admin.socket admin.socket && ln -s /dev/null tunnel.service)"),
                  0)
            << read("errors");
        m_before = tree();
    }

    static string printed(const string& command) { return shell(command), read("output"); }
    static string tree() { return printed("find " ETC " -printf '%p %y %l %m\\n' | sort"); }
    static string links(const string& root)
    {
        return printed("cd " + root +
                       "/etc/systemd/system && find . -type l -printf '%P %l\\n' | sort");
    }
    static void off(const string& unit) { systemd::switch_off(fs::absolute("root"), unit); }
    static void on(const string& unit) { systemd::switch_on(fs::absolute("root"), unit); }
    /// The names in the listing, each with the levels in which it is on.
    static string listed(const string& tool = "")
    {
        std::istringstream lines(systemd::list(fs::absolute("root"), tool).output);
        string all;
        for (string line, word; std::getline(lines, line); all += " ") {
            std::istringstream words(line);
            words >> word;
            all += word + "=";
            while (words >> word) {
                all += word.find("on") == 2 ? word.substr(0, 1) : "";
            }
        }
        return all;
    }

    std::vector<string> units = {"cups.service",       "cups.socket",     "log.service",
                                 "getty@tty1.service", "telnet.socket",   "tunnel.service",
                                 "by-hand.service",    "virtlog.service", "virtlog.socket",
                                 "dropped.service",    "linked.service",  "trim.timer",
                                 "getty@tty3.service", "masked.service"};
    string m_before;
};

TEST_F(SystemdTest, RemovesWhatSystemctlDisables)
{
    for (const string& unit : units) {
        shell("rm -rf copy; cp -a root copy; systemctl --root=$PWD/copy disable " + unit);
        // The two intended differences: links to /dev/null and linked unit files stay.
        shell("cd " ETC "; cp -dr --parents masked.service linked.service "
              "mine.target.wants/tunnel.service $OLDPWD/copy/etc/systemd/system");
        off(unit);
        EXPECT_EQ(links("root"), links("copy")) << unit;
        EXPECT_EQ(tree() == m_before, unit == "masked.service") << unit;
        if (tree() != m_before) {
            on(unit);
            EXPECT_EQ(tree(), m_before) << unit;
        }
    }
}

TEST_F(SystemdTest, PutsEverythingBackInAnyOrder)
{
    // An alias of an alias, which systemctl forgets below a root folder, and a way through it.
    shell("cd " ETC "; ln -s printing.service print.service; ln -s print.service p.service; "
          "mkdir b.target.upholds; ln -s ../print.service b.target.upholds");
    m_before = tree();
    units.pop_back(); // the masked one
    const string all_on = listed();
    string all_off = all_on;
    for (std::size_t at = 0; (at = all_off.find("=2345")) != string::npos;) {
        all_off.erase(at + 1, 4);
    }
    EXPECT_EQ(all_on, "by-hand=2345 cups=2345 cups.path=2345 cups.socket=2345 dropped=2345 "
                      "getty@tty1=2345 getty@tty3=2345 linked=2345 log=2345 never= telnet=2345 "
                      "telnet.socket=2345 trim.timer=2345 tunnel=2345 virtlog=2345 "
                      "virtlog-admin.socket=2345 virtlog.socket=2345 ");
    std::mt19937 random(1);
    for (int round = 0; round < 4; ++round) {
        std::shuffle(units.begin(), units.end(), random);
        std::for_each(units.begin(), units.end(), off);
        EXPECT_EQ(links("root"),
                  "a.target.wants/masked.service /usr/lib/systemd/system/masked.service\n"
                  "linked.service /opt/linked.service\nmasked.service /dev/null\n"
                  "mine.target.wants/tunnel.service /dev/null\n");
        EXPECT_EQ(listed(), all_off);
        std::shuffle(units.begin(), units.end(), random);
        for (std::size_t at = 0; at < units.size(); ++at) { // with some steps back
            on(units[at]);
            (at % 3 == 1 ? off : on)(units[random() % (at + 1)]);
        }
        std::for_each(units.begin(), units.end(), on);
        EXPECT_EQ(tree(), m_before);
        EXPECT_EQ(printed("cd " RECORDS "; find . -type f -printf '%f %m\\n'"), "lock 600\n");
    }
}

/// Each system call fails once, or the process ends before it, until a switch succeeds.
TEST_F(SystemdTest, LosesNoLinkWhateverFails)
{
    off("dropped.service");
    const string without = tree();
    on("dropped.service");
    for (const auto change : {on, off, on, off}) {
        is_crash = change == on ? !is_crash : is_crash;
        int status = -1;
        for (int call = 1; status != 0; ++call) {
            SCOPED_TRACE("call " + std::to_string(call));
            if (change == on) {
                off("dropped.service");
            }
            if (fork() == 0) {
                calls_left = call;
                try {
                    change("dropped.service");
                } catch (const std::exception&) {
                    _exit(1);
                }
                _exit(0);
            }
            wait(&status);
            const bool is_pending = fs::exists(RECORDS "dropped.service.pending");
            if (change == off && !is_crash && status != 0) {
                EXPECT_EQ(tree() + (is_pending ? "pending" : ""), m_before) << "not undone at once";
            }
            on("tunnel.service"); // puts back what is pending
            EXPECT_THAT(tree(), is_pending ? testing::AnyOf(m_before, m_before)
                                           : testing::AnyOf(m_before, without));
            on("dropped.service");
            EXPECT_EQ(tree(), m_before);
        }
    }
}

TEST_F(SystemdTest, FlushesRecordsBeforeLinksAndLinksBeforeRecords)
{
    on("tunnel.service"); // makes the folder
    string calls;
    system_calls::trace = &calls;
    off("tunnel.service");
    on("tunnel.service");
    system_calls::trace = nullptr;
    write("calls", calls);
    EXPECT_EQ(printed("tr ';' '\\n' <calls | grep -v ' *open' | awk '{ n = split($2, part, \"/\"); "
                      "printf \"%s %s;\", $1, part[n] }'"),
              "fsync .tunnel.service.pending.tmp;renameat tunnel.service.pending;fsync links;"
              "unlinkat ;fsync system;fsync network.target.requires;"
              "renameat tunnel.service;fsync links;"
              "fsync .tunnel.service.pending.tmp;renameat tunnel.service.pending;fsync links;"
              "symlinkat tunnel.service;fsync system;fsync network.target.requires;"
              "unlinkat ;fsync links;unlinkat ;fsync links; ;");
}

/// After the first steps the listing holds a text; after the others everything is as before.
TEST_F(SystemdTest, CopesWithWhatHappensInBetween)
{
    const std::tuple<const char*, const char*, const char*> table[] = {
        {"off tunnel.service; [ \"$(stat -c %a $R $R/tunnel.service | xargs)\" = '755 644' ]; "
         "mkdir $E/z.wants; ln -s /x/tunnel.service $E/z.wants",
         " tunnel=2345 ",
         "on tunnel.service; [ ! -e $R/tunnel.service ]; rm -r $E/z.wants; [ ! -h $L ]; "
         "on tunnel.service"}, // without a record, it runs systemctl enable
        {"off cups.service; ln -s /x/cups.socket $E/sockets.target.wants; off cups.service",
         " cups= ", "rm $E/sockets.target.wants/cups.socket; on cups.service"},
        {"off cups.service; on cups.socket; [ ! -h $E/printing.service ]",
         " cups= cups.path= cups.socket=2345 ", "on cups.service"},
        {"off virtlog.service; on virtlog.socket",
         " virtlog=2345 virtlog-admin.socket= ", "on virtlog.service"},
        {"off virtlog.service; on virtlog.socket; off virtlog.service",
         " virtlog= ", "on virtlog.service"},
        {"off trim.timer; off tunnel.service; : >$R/trim.timer; on tunnel.service",
         " trim.timer= ", "rm $R/trim.timer; on trim.timer"},
        {"off tunnel.service; mv $U/tunnel.service x; !on tunnel.service",
         " trim.timer=2345 virtlog=", "mv x $U/tunnel.service; on tunnel.service"},
        {"off tunnel.service; ln -s /dev/null $E/tunnel.service",
         " trim.timer=2345 virtlog=", "rm $E/tunnel.service; on tunnel.service"},
        {"off tunnel.service; mv $R/tunnel.service $R/tunnel.service.pending", " tunnel=2 ",
         "[ -e $R/tunnel.service.pending ]; off trim.timer; [ ! -e $R/tunnel.service.pending ]; on "
         "trim.timer"},
        {"off tunnel.service; rm -r $E/network.target.requires", " tunnel= ", "on tunnel.service"},
        {"off tunnel.service; ln $R/lock $L",
         " tunnel= ", "on tunnel.service; [ ! -h $L ]; rm $L; on tunnel.service"},
        {"off tunnel.service; echo ../x.service /y >>$R/tunnel.service", " tunnel= ",
         "!on tunnel.service; head -n1 $R/tunnel.service >y; mv y $R/tunnel.service; on "
         "tunnel.service"},
        {"on log.service; rm $R/lock; ln -s ../victim $R/lock", " tunnel=2345 ",
         "!off tunnel.service; [ ! -e $R/../victim ]; rm $R/lock; on log.service"}};
    const auto follow = [](const string& steps) {
        std::istringstream all(steps);
        for (string step; std::getline(all >> std::ws, step, ';');) {
            SCOPED_TRACE(step);
            const string unit = step.substr(step.find(' ') + 1);
            if (step.rfind("on ", 0) == 0 || step.rfind("off ", 0) == 0) {
                step[1] == 'n' ? on(unit) : off(unit);
            } else if (step[0] == '!') {
                EXPECT_THROW((step[2] == 'n' ? on : off)(unit), std::exception);
            } else {
                const string names = "E=" ETC " R=" RECORDS " U=" UNITS;
                EXPECT_EQ(
                    shell(names + " L=" ETC "network.target.requires/tunnel.service; " + step), 0);
            }
        }
    };
    for (const auto& [first, part, others] : table) {
        SCOPED_TRACE(first);
        follow(first);
        EXPECT_THAT(listed(), HasSubstr(part));
        follow(others);
        EXPECT_EQ(tree(), m_before);
        EXPECT_EQ(printed("ls -A " RECORDS), "lock\n");
    }
}

TEST_F(SystemdTest, ListsWhatOldAndNewSystemctlPrint)
{
    // Releases 219, 239, 245 and 252. Older ones call aliases enabled, and show no generated units.
    constexpr const char* table[] = {
        R"(cups.service            enabled 
never.service             disabled
syslog.service          enabled 
getty@.service          enabled 
virtlog.service         indirect
masked.service          masked  
dev-disk\x2did.swap     enabled 
linked.service          linked  
rc-old.service          disabled)",
        R"(cups.service    enabled
never.service     disabled
syslog.service  enabled
by-hand.service static
virtlog.service indirect
tunnel.service  enabled-runtime
rc-old.service  generated)",
        R"(cups.service    enabled   disabled
never.service     disabled  enabled
virtlog.service indirect  disabled
rc-old.service  generated enabled)",
        R"(cups.service    enabled   disabled
never.service     disabled  enabled
older.service   alias     -
virtlog.service indirect  disabled
rc-old.service  generated -)"};
    write("bin/systemctl", "#!/bin/sh\necho \"$*\" >>commands\ncat units\nexit $(cat status)\n");
    write("listing", "log            \t0:off\t3:on\nrc-old         \t0:off\t3:on\n"
                     "xinetd based services:\n\tcups:          \ton\n\trsync:         \ton\n");
    fs::permissions("bin/systemctl", fs::perms::owner_all);
    for (const char* const text : table) {
        write("units", text);
        write("status", "0");
        EXPECT_EQ(listed(fs::absolute("bin/chkconfig")),
                  "cups=2345 getty@tty1=2345 getty@tty3=2345 never= virtlog=2345 rc-old=3 xinetd= "
                  "rsync:= ")
            << text;
        write("status", "1");
        EXPECT_THROW(listed(), std::runtime_error);
        EXPECT_EQ(shell("PATH=$PWD/bin:$PATH " CHKCONFIG " --list"), 1);
        EXPECT_EQ(read("output"), "");
    }
    off("cups.service");
    EXPECT_THAT(read("commands"), Not(HasSubstr("daemon-reload"))) << "for another root";
}

TEST_F(SystemdTest, LeavesTheRestToTheNextChkconfig)
{
    shell("mkdir ours own; ln -s " CHKCONFIG " ours; ln -s ../ours/chkconfig own");
    const std::tuple<const char*, const char*, int, const char*> calls[] = {
        {"$PWD/ours:$PWD/own:$PWD/bin", "--add x", 0, "done\n"},
        {"$PWD/bin:$PWD/ours:relative", "--add x", 1, ""},
        {"$PWD/none", "--level 3 no-such-unit off", 1, ""},
        {"$PWD/bin", "--level 3 no-such-unit off", 0, "done\n"}};
    for (const auto& [path, arguments, status, output] : calls) {
        EXPECT_EQ(shell(string("PATH=") + path + "; export PATH; ours/chkconfig " + arguments),
                  status);
        EXPECT_EQ(read("output"), output) << path;
    }
}

TEST_F(SystemdTest, FindsUnits)
{
    const string longest(193, 'x');
    // clang-format off
    const std::pair<string, string> table[] = {
        {"cups", "cups.service"}, {"cups.socket", "cups.socket"}, {"telnet", "telnet.socket"},
        {"getty@tty9", "getty@tty9.service"}, {"gone", "gone.service"}, {"getty@", ""},
        {"lonely", ""}, {"dev-disk\\x2did.swap", ""}, {"--now", ""}, {"../system/cups", ""},
        {"cups cups", ""}, {"", ""}, {longest, ""}};
    // clang-format on
    fs::create_directories(RECORDS);
    write(RECORDS "gone.service", "");
    write(UNITS + longest + ".service", "");
    write(UNITS "cups cups.service", "");
    write(UNITS "lonely.socket", "");
    for (const auto& [name, unit] : table) {
        EXPECT_EQ(systemd::find_unit(fs::absolute("root"), name), unit) << name;
    }
    EXPECT_THROW(systemd::find_unit(fs::absolute("root"), "syslog"), std::runtime_error);
}
