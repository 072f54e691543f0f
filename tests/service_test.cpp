// The service control: reading the listing, and the commands that switch services.
#include "service/redhat_service.h"
#include "tests/system_calls.h"
#include "tests/workspace.h"

#include <csignal>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>

using testing::HasSubstr, testing::Not;

/// Name to level, after "xinetd " for a service of xinetd.
using Listed = std::map<std::string, std::string>;

class ServiceTest : public Workspace
{
protected:
    ServiceTest() { setenv("TEST_PID", std::to_string(getpid()).c_str(), 1); }

    /// Lists into a map that holds `services` already; returns what it holds then.
    Listed list(CServiceMap services = {})
    {
        EXPECT_TRUE(m_service.GetSystemServiceList(services));
        Listed result;
        for (const auto& [name, service] : services) {
            result[name] = (service.xinetd ? "xinetd " : "") + service.level;
        }
        return result;
    }

    CRedhatService m_service;
};

TEST_F(ServiceTest, ReadsTheListing)
{
    const std::pair<std::string, Listed> table[] = {
        {"crond          \t0:off\t1:off\t2:on\t3:on\t4:on\t5:on\t6:on\n", {{"crond", "2345"}}},
        {"a\t0:off\t1:off\t2:off\t3:off\t4:off\t5:off\t6:on\n", {{"a", "off"}}},
        {"\va\f9:on\v9:off\r9:on\t0:on", {{"a", "023"}}}, // the position counts
        {"a\t0:on\t1:onwards\t2:o\t\xE5\xBC\x80\t:on\t5on", {{"a", "01"}}},
        {"0:on", {{"0:on", "off"}}},
        {"\techo10:\ton\n", {{"echo10:", "off"}}}, // "0:" marks a run-level service
        {"\trsync:         \ton\n", {{"rsync", "xinetd on"}}},
        {"\trsync:\ton", {}}, // perhaps cut short
        {"\trsync:\n", {}},
        {"xinetd based services:\n", {{"xinet", "xinetd based"}}},
        {" \t\v\f\r\n", {}},
        {"a\t0:on\na\t0:off\nb:\ton\nb:\toff\n", {{"a", "off"}, {"b", "xinetd off"}}},
        {std::string(255, 'a') + "b:\ton\n", {{"b", "xinetd on"}}}}; // split after 255 bytes
    for (const auto& [listing, expected] : table) {
        write("listing", listing);
        EXPECT_EQ(list(), expected) << listing;
    }
    CServiceMap services;
    services["kept"] = {"5", false};
    EXPECT_EQ(list(services).count("kept"), 1U);

    write("bin/chkconfig", "#!/bin/sh\necho \" $LC_ALL:\t$*\"\n");
    setenv("LC_ALL", "zh_CN.UTF-8", 1);
    EXPECT_EQ(list(), (Listed{{"en_US", "xinetd --list"}}));
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);

    // A signal interrupts the reading in the middle of a line.
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &handler, nullptr), 0); // without SA_RESTART
    write("bin/chkconfig", "#!/bin/sh\nprintf 'a 0:off 1:o'\n"
                           "until grep -q 'State:.S' /proc/$TEST_PID/status; do :; done\n"
                           "kill -ALRM $TEST_PID\nprintf 'n 2:on\\nb 0:off\\n'\n");
    EXPECT_EQ(list(), (Listed{{"a", "12"}, {"b", "off"}}));

    write("bin/chkconfig", "#!/bin/sh\necho complaint >&2\nexit 1\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(list(), Listed());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("complaint")));

    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0); // no descriptors: the command cannot start
    EXPECT_FALSE(m_service.GetSystemServiceList(services));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);
    EXPECT_EQ(services.size(), 1U);
}

TEST_F(ServiceTest, RefusesWhatTheShellWouldInterpret)
{
    std::vector<std::string> hostile = {"-n", "a b", "a\nb", "a\x01", "a\x7F"};
    for (const char character : std::string("'\"\\$&;|<>(){}[]*?~#!^=`\0", 24)) {
        hostile.push_back(std::string("a") + character + "b");
    }
    testing::internal::CaptureStdout();
    for (const std::string& text : hostile) {
        EXPECT_FALSE(m_service.OptimizeService(text, "3", false)) << text;
        EXPECT_FALSE(m_service.RestoreService("crond", text, false)) << text;
        EXPECT_FALSE(m_service.RestoreService(text, "on", true)) << text;
    }
    for (const char* const name : {"", ".", "..", "../passwd"}) {
        EXPECT_FALSE(m_service.SetXinetServiceOff(name)) << name;
    }
    EXPECT_TRUE(m_service.OptimizeService("a;b", "off", true)); // nothing to do
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(m_service.SetServiceOff("a.b-c_d+e@f,g:h%\xC3\xA9", "3"));
}

TEST_F(ServiceTest, EditsFilesAsSedDoes)
{
    install_machine();
    const std::string odd = "\tdisable\t=\tno\ndisable=no\n# nothing here = 1 2\n";
    write("etc/xinetd.d/svc", odd + "\tdisable\t\t= no\ndisable = no # really\n");
    std::string calls;
    system_calls::trace = &calls;
    EXPECT_TRUE(m_service.SetXinetServiceOff("svc"));
    system_calls::trace = nullptr;
    EXPECT_THAT(calls, testing::MatchesRegex("open .*/svc; fsync .*/svc; ")); // sed does not flush
    EXPECT_EQ(read("etc/xinetd.d/svc"), odd + "\tdisable\t\t= yes\ndisable = no # yes\n");
    EXPECT_FALSE(m_service.SetXinetServiceOff("missing"));
    // Kills itself, and its parent if that is a shell: some shells become their last command.
    write("bin/sed", "#!/bin/sh\n[ $PPID = $TEST_PID ] || kill -9 $PPID\nkill -9 $$\n");
    EXPECT_FALSE(m_service.SetXinetServiceOn("svc"));
}

TEST_F(ServiceTest, MachineAnswersAsTheRealTool)
{
    install_machine();
    const std::pair<const char*, const char*> files[] = {
        {"\tdisable\t\t= yes\n", "off"}, {"disable = yess # c", "off"},
        {"disabled += yes x", "off"},    {" disable yes", "off"},
        {"disable = YES", "on"},         {"disable = no\ndisable = yes\n", "off"},
        {"# disable = yes", "on"},       {"disable = yes\ndisable = no\n", "on"}};
    for (const auto& [text, state] : files) {
        write("etc/xinetd.d/a.file", text);
        EXPECT_EQ(list()["a.file"], std::string("xinetd ") + state) << text;
    }
    EXPECT_FALSE(m_service.SetServiceOff("cups", "247")); // there is no 7
    EXPECT_TRUE(m_service.SetServiceOff("cups", "246"));
    EXPECT_THAT(read("etc/runlevels"), HasSubstr("\ncups\t35\n"));
}
