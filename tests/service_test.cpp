// The service control: the listing's lines, and the commands that switch services.
#include "service/redhat_service.h"
#include "tests/workspace.h"

#include <cstdlib>
#include <sys/resource.h>

namespace
{

class ServiceTest : public Workspace
{
protected:
    ServiceTest() { install_stand_ins(); }

    CRedhatService m_service;
};

/// A map in one line: "name=level" with a '*' for xinetd.
std::string brief(const CServiceMap& services)
{
    std::string text;
    for (const auto& [name, service] : services) {
        text += name + "=" + service.level + (service.xinetd ? "* " : " ");
    }
    return text;
}

TEST_F(ServiceTest, ReadsTheLinesOfTheListing)
{
    const std::pair<const char*, const char*> table[] = {
        {"crond          \t0:off\t1:off\t2:on\t3:on\t4:on\t5:on\t6:on\n", "crond=2345 "},
        {"a\t0:off\t1:off\t2:off\t3:off\t4:off\t5:off\t6:on\n", "a=off "},
        {"a\t9:on\t9:off\t9:on\t0:on", "a=023 "}, // a word's place counts, not its digit
        {"a\t0:on\t1:onwards\t2:o\t\xE5\xBC\x80\t:on", "a=01 "},
        {"0:on", "0:on=off "},
        {"\techo10:\ton\n", "echo10:=off "}, // taken for a service with run levels
        {"\trsync:         \ton\n", "rsync=on* "},
        {"\trsync:\ton", ""}, // perhaps cut short
        {"\trsync:\n", ""},
        {"xinetd based services:\n", "xinet=based* "},
        {" \t\v\f\r\n", ""}};
    for (const auto& [line, expected] : table) {
        CServiceMap services;
        AddListedService(line, services);
        EXPECT_EQ(brief(services), expected) << line;
    }
}

TEST_F(ServiceTest, ReadsTheListing)
{
    write("listing", std::string(254, 'a') + "\tb:\ton\n" + // in pieces: longer than the buffer
                         std::string(300, ' ') + "c:\toff\n");
    CServiceMap services;
    services["b"] = {"5", false}; // replaced
    services["kept"] = {"5", false};
    EXPECT_TRUE(m_service.GetSystemServiceList(services));
    EXPECT_EQ(brief(services), "b=on* c=off* kept=5 ");

    write("bin/chkconfig", "#!/bin/sh\necho \" $LC_ALL:\t$*\"\n");
    setenv("LC_ALL", "zh_CN.UTF-8", 1);
    services.clear();
    EXPECT_TRUE(m_service.GetSystemServiceList(services));
    EXPECT_EQ(brief(services), "en_US=--list* ");
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);

    services.clear();
    write("bin/chkconfig", "#!/nowhere\n"); // says nothing
    EXPECT_TRUE(m_service.GetSystemServiceList(services));
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0); // no descriptor for the pipe: cannot start
    EXPECT_FALSE(m_service.GetSystemServiceList(services));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);
    EXPECT_TRUE(services.empty());
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
    EXPECT_TRUE(m_service.OptimizeService("a;b", "off", true)); // off already
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(read("ran"), "");
}

TEST_F(ServiceTest, EditsFilesAsSedDoes)
{
    install_machine();
    const std::string odd = "\tdisable\t=\tno\ndisable=no\n# nothing here = 1 2\n";
    write("etc/xinetd.d/svc", odd + "\tdisable\t\t= no\ndisable = no # really\n");
    EXPECT_TRUE(m_service.SetXinetServiceOff("svc"));
    EXPECT_EQ(read("etc/xinetd.d/svc"), odd + "\tdisable\t\t= yes\ndisable = no # yes\n");
    EXPECT_FALSE(m_service.SetXinetServiceOff("missing"));
    // Killed, and with it the shell that runs it, if it has not become that command itself.
    write("bin/sed", "#!/bin/sh\nread -r parent </proc/$PPID/comm\n"
                     "[ \"$parent\" != sh ] || kill -9 $PPID\nkill -9 $$\n");
    EXPECT_FALSE(m_service.SetXinetServiceOn("svc"));
}

} // namespace
