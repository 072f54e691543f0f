// The service control: the listing's lines, and the commands that switch services.
#include "service/redhat_service.h"
#include "tests/workspace.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <sys/resource.h>

namespace
{

using testing::ElementsAre;

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
        {"a\t0:on\t1:off\t2:off\t3:off\t4:off\t5:off\t6:off\n", "a=0 "},
        {"a\t9:on\t9:off\t9:on\t0:on", "a=023 "}, // a word's place counts, not its digit
        {"a\t0:on\t1:onwards\t2:o\t\xE5\xBC\x80\t:on", "a=01 "},
        {"a 0:on", "a=0 "},
        {"0:on", "0:on=off "},
        {"\techo10:\ton\n", "echo10:=off "}, // taken for a service with run levels
        {"\trsync:         \ton\n", "rsync=on* "},
        {"\trsync:\ton", ""}, // perhaps cut short
        {"\trsync:\ton ", "rsync=on* "},
        {"\trsync:\n", ""},
        {"xinetd based services:\n", "xinet=based* "},
        {"x y z", "=y* "},
        {"\n", ""},
        {"", ""},
        {" \t\v\f\r", ""},
    };
    for (const auto& [line, expected] : table) {
        CServiceMap services;
        AddListedService(line, services);
        EXPECT_EQ(brief(services), expected) << line;
    }
    CServiceMap services;
    AddListedService("a\t0:on\n", services);
    AddListedService("\ta:\toff\n", services); // the later entry replaces the earlier one
    EXPECT_EQ(brief(services), "a=off* ");
}

TEST_F(ServiceTest, ReadsARealListing)
{
    write("listing", read(SOURCE_DIR "/machine/chkconfig-list.txt"));
    CServiceMap services;
    services["kept"] = {"5", false};
    ASSERT_TRUE(m_service.GetSystemServiceList(services));
    EXPECT_EQ(services.size(), 69U + 15U + 2U); // the heading and the one that was there
    int xinetd = 0;
    for (const auto& entry : services) {
        xinetd += entry.second.xinetd;
    }
    EXPECT_EQ(xinetd, 16);
    EXPECT_EQ(services["blk-availability"].level, "12345");
    EXPECT_EQ(services["NetworkManager"].level, "2345");
    EXPECT_EQ(services["ypbind"].level, "off");
    EXPECT_EQ(services["telnet"].level, "on");
    EXPECT_EQ(services["kept"].level, "5");
}

TEST_F(ServiceTest, ListsInEnglishAndForgetsTheLocale)
{
    write("bin/chkconfig", "#!/bin/sh\necho \" $LC_ALL:\t$*\"\n");
    for (const char* const before : {"zh_CN.UTF-8", static_cast<const char*>(nullptr)}) {
        before == nullptr ? unsetenv("LC_ALL") : setenv("LC_ALL", before, 1);
        CServiceMap services;
        EXPECT_TRUE(m_service.GetSystemServiceList(services));
        EXPECT_EQ(brief(services), "en_US=--list* ");
        EXPECT_EQ(std::getenv("LC_ALL"), nullptr);
    }
}

TEST_F(ServiceTest, TellsACommandThatCannotStartFromOneThatSaysNothing)
{
    CServiceMap services;
    write("bin/chkconfig", "#!/nowhere\n");
    EXPECT_TRUE(m_service.GetSystemServiceList(services));

    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0); // no descriptor for the pipe
    EXPECT_FALSE(m_service.GetSystemServiceList(services));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);
    EXPECT_TRUE(services.empty());
}

TEST_F(ServiceTest, ReadsALongLineInPieces)
{
    write("listing", std::string(254, 'a') + "\tb:\ton\n" + std::string(300, ' ') + "c:\toff\n");
    CServiceMap services;
    EXPECT_TRUE(m_service.GetSystemServiceList(services));
    EXPECT_EQ(brief(services), "b=on* c=off* ");
}

TEST_F(ServiceTest, PrintsAndRunsOneCommand)
{
    const std::string sed = R"(sed -i 's/\(^.*disable.*=.*\)\( .*$\)/\1 )";
    const struct {
        bool on;
        const char* name;
        const char* level;
        bool xinetd;
        std::string command;
    } table[] = {
        {false, "crond", "2345", false, "chkconfig --level 2345 crond off"},
        {true, "crond", "2345", false, "chkconfig --level 2345 crond on"},
        {true, "crond", "off", false, "chkconfig --level off crond on"},
        {false, "a@b:c+d.e_f-g\xE5\xBC\x80,%/", "", false,
         "chkconfig --level  a@b:c+d.e_f-g\xE5\xBC\x80,%/ off"},
        {false, "rsync", "on", true, sed + "yes/g' /etc/xinetd.d/rsync"},
        {true, "rsync", "off", true, sed + "no/g' /etc/xinetd.d/rsync"},
    };
    const auto call = [this](const auto& row) {
        return row.on ? m_service.RestoreService(row.name, row.level, row.xinetd)
                      : m_service.OptimizeService(row.name, row.level, row.xinetd);
    };
    for (const auto& row : table) {
        for (const char* const end : {"exit 0", "exit 1", "kill -9 $PPID"}) {
            for (const char* const command : {"bin/chkconfig", "bin/sed"}) {
                write(command, "#!/bin/sh\necho ran >ran\n" + std::string(end) + "\n");
            }
            write("ran", "");
            testing::internal::CaptureStdout();
            const bool done = call(row);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), row.command + "\n");
            EXPECT_EQ(done, std::string(end) == "exit 0") << end;
            EXPECT_THAT(ran(), ElementsAre("ran"));
        }
    }
}

TEST_F(ServiceTest, RunsNothingForWhatIsOffAlready)
{
    EXPECT_TRUE(m_service.OptimizeService("crond", "off", false));
    EXPECT_TRUE(m_service.OptimizeService("a;b", "off", true));
    EXPECT_TRUE(ran().empty());
}

TEST_F(ServiceTest, RefusesWhatTheShellWouldInterpret)
{
    std::vector<std::string> hostile = {"-n", "--help", "a b", "a\nb", "a\x01", "a\x7F", "\t"};
    for (const char character : std::string("'\"\\$&;|<>(){}[]*?~#!^=`")) {
        hostile.push_back(std::string("a") + character + "touch${IFS}owned");
    }
    hostile.push_back(std::string("a\0b", 3));
    testing::internal::CaptureStdout();
    for (const std::string& text : hostile) {
        EXPECT_FALSE(m_service.OptimizeService(text, "3", false)) << text;
        EXPECT_FALSE(m_service.RestoreService(text, "3", false)) << text;
        EXPECT_FALSE(m_service.OptimizeService("crond", text, false)) << text;
        EXPECT_FALSE(m_service.RestoreService("crond", text, false)) << text;
        EXPECT_FALSE(m_service.OptimizeService(text, "on", true)) << text;
        EXPECT_FALSE(m_service.RestoreService(text, "on", true)) << text;
    }
    for (const char* const name : {"", ".", "..", "a/b", "../passwd"}) {
        EXPECT_FALSE(m_service.SetXinetServiceOff(name)) << name;
        EXPECT_FALSE(m_service.SetXinetServiceOn(name)) << name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(ran().empty());
}

TEST_F(ServiceTest, EditsFilesAsSedDoes)
{
    write("bin/sed", read(SOURCE_DIR "/machine/bin/sed"));
    ASSERT_EQ(std::system("mkdir -p etc/xinetd.d"), 0);
    const std::pair<const char*, const char*> table[] = {
        {"\tdisable\t\t= no\n", "\tdisable\t\t= yes\n"},
        {"\tdisable\t=\tno\n", "\tdisable\t=\tno\n"}, // no blank behind the sign
        {"disable=no\n", "disable=no\n"},
        {"disable = no # really\n", "disable = no # yes\n"},
        {"service a\ndisable = no\nservice b\n disable = no\n",
         "service a\ndisable = yes\nservice b\n disable = yes\n"},
        {"# nothing here = 1 2\n", "# nothing here = 1 2\n"},
    };
    for (const auto& [before, after] : table) {
        write("etc/xinetd.d/svc", before);
        EXPECT_TRUE(m_service.SetXinetServiceOff("svc"));
        EXPECT_EQ(read("etc/xinetd.d/svc"), after);
    }
    EXPECT_FALSE(m_service.SetXinetServiceOff("missing"));
}

} // namespace
