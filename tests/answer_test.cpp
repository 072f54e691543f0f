// Calls of remote clients: answered by the library, and by the example of a host.
#include "framework/descriptor.h"
#include "host/module.h"
#include "tests/workspace.h"
#include "transaction/answer.h"

#include <csignal>
#include <fcntl.h>
#include <future>
#include <sys/file.h>

using testing::HasSubstr;
#define CONF "config/system_operation/conf.xml"
#define LOCK CONF ".lock"
#define RECORD CONF ".record"

/// Answers calls in place of the module, and must not hold the lock while it sends replies.
class Guarded final : public rpc::IIfaceRealize, public rpc::ICommand
{
public:
    /// Waits at most so many seconds for the lock; negative: without a bound.
    Guarded(rpc::IIfaceRealize& module, long seconds) : m_module(module), m_waiting{seconds, {}} {}
    ec::EC init(void*) override { return 0; }
    void release() override {}
    const IAtt* iatt() const override { return nullptr; }
    ec::EC fatts(ex_std::vector<const FAtt*>&) const override { return 0; }
    ec::EC call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
                     rpc::ICommand* command) override
    {
        m_command = command;
        m_said.clear();
        m_result = transaction::answer(
            m_module, in, out, this, CONF, [this](const auto& text) { m_said += text + "\n"; },
            m_waiting);
        return m_result;
    }
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const fwbase::Descriptor file(open(CONF ".lock", O_RDWR));
        // Without a bound it runs beside other threads, and these may hold the lock.
        EXPECT_TRUE(flock(file.get(), LOCK_EX | LOCK_NB) == 0 || m_waiting.seconds < 0);
        return m_command->reply(code, block);
    }

    rpc::IIfaceRealize& m_module;
    const transaction::Waiting m_waiting;
    rpc::ICommand* m_command = nullptr;
    std::string m_said;
    ec::EC m_result = 0;
};

class AnswerTest : public Workspace
{
protected:
    AnswerTest() { reset(); }

    /// Puts back the machine. chkconfig runs the file "hook" first, with its own arguments.
    static void reset()
    {
        install_machine();
        shell("rm -f " CONF ".*; cp -p bin/chkconfig bin/real; : >hook");
        write("bin/chkconfig", "#!/bin/sh\nset -- \"$@\"; . ./hook\nexec ${0%/*}/real \"$@\"\n");
    }
};

TEST_F(AnswerTest, AnswersAsTheModuleButForgetsNothing)
{
    const std::string on_list = "!echo '[ $1 = --list ] && ",
                      on_switch = "!echo '[ $1 = --list ] || ";
    const std::string failed = " has failed";
    const struct {
        std::vector<std::string> steps; ///< calls, and commands after '!'; the last answer counts
        std::string answer;
        std::string said = "";
        ec::EC result = 0x840C0000;
    } table[] = {
        {{"optimize_service 30 3 99 3"}, "30 3 success", "id 99 not handled: not configured"},
        {{"optimize_service 3", "optimize_service 3"}, "success", "cups (3) is already off"},
        {{"optimize_service 3 30", "restore_service 30 3"}, "30 3 success"},
        {{"ignore_service on 2 15"}, "2 success", "sshd (15) is already ignored"},
        {{"ignore_service off 15", "optimize_service 15"}, "15 success"},
        {{on_switch + "! flock -sn " LOCK " true || exit 1' >hook", "optimize_service 3"},
         "3 success"},
        {{"!echo '[ ! -e x ] || exit 1; [ $1 = --list ] || : >x' >hook", "optimize_service 3"},
         "success",
         "cups (3) not handled: not verified"},
        {{on_switch + "mv " CONF " x' >hook", "optimize_service 3"}, "failure", failed},
        {{on_list + "mv " CONF " x' >hook", "ls_service"}, "failure", failed},
        {{"!sed -i \"/cups/s/desc=./&$(printf %066000d)/\" " CONF, "ls_service"},
         ".*success",
         "cups (3) is too long to be sent"},
        {{"optimize_service 3", "!sed -i /^cups/d etc/runlevels", "ls_service"},
         ".* 3 cups .* 1 4 .*success"},
        {{"!cp " CONF " x", "ignore_service on 2", "!cp x " CONF, "ls_service"},
         ".* 2 atd .* 2 3 .*success"},
        {{"!echo x >" RECORD, "restore_service 3"}, "failure", "conf.xml.record:1: "},
        {{"set_optimize_sorce 7", "get_optimize_sorce"}, "7 success"},
        {{"!rm " CONF, "set_optimize_sorce 7"}, "failure", "conf.xml: cannot open"},
        {{"ls_reg"}, "success"},
        {{"set_optimize_sorce"}, "failure", "", 0x040C0005},
        {{"restore_service"}, "failure", "", 0x040C0005},
        {{"ignore_service 3"}, "failure", "", 0x040C0005},
        {{"frobnicate"}, "failure", "", 0x040C0001}};
    const host::Module module(MODULE);
    Guarded guarded(module.interface(), 0);
    for (const auto& row : table) {
        SCOPED_TRACE(testing::PrintToString(row.steps));
        reset();
        std::string answer;
        for (const std::string& step : row.steps) {
            answer = step[0] == '!' ? std::to_string(shell(step.substr(1))) : call(guarded, step);
        }
        EXPECT_THAT(answer, testing::MatchesRegex(row.answer));
        EXPECT_THAT(guarded.m_said, HasSubstr(row.said));
        EXPECT_EQ(guarded.m_result, row.result);
    }
    reset();
    const std::string listing = call(guarded, "ls_service"); // the descriptions, too
    EXPECT_EQ(listing, call(module.interface(), "ls_service"));
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(call(guarded, "ls_service"), "failure");
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_THAT(guarded.m_said, HasSubstr("SIGCHLD is ignored"));
    const auto block = host::make_call_block(to_call("optimize_service 3"));
    const std::string request(reinterpret_cast<const char*>(block->data()), block->size());
    ec::EC result = 0; // of a call block with an extension
    host::call_module(
        guarded, *raw_block(std::string("\0\0\1\0x", 5) + request.substr(4)), [](const auto&) {},
        result);
    EXPECT_THAT(read(RECORD), HasSubstr("cups off 2345"));
    const fwbase::Descriptor lock(open(LOCK, O_RDWR));
    ASSERT_EQ(flock(lock.get(), LOCK_SH), 0);
    for (const char* const line : {"set_optimize_sorce 7", "restore_service 3"}) {
        EXPECT_EQ(call(guarded, line), "failure");
        EXPECT_THAT(guarded.m_said, HasSubstr("conf.xml.lock: another call has not ended"));
    }
    EXPECT_EQ(call(guarded, "get_optimize_sorce"), "85 success");
}

TEST_F(AnswerTest, ThreadsExcludeOneAnother)
{
    const host::Module module(MODULE);
    const auto work = [&module](const std::string& id) {
        Guarded guarded(module.interface(), -1);
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(call(guarded, "optimize_service " + id), id + " success");
            EXPECT_EQ(call(guarded, "restore_service " + id), id + " success");
        }
    };
    std::vector<std::future<void>> threads;
    for (const char* const id : {"2", "3", "4", "30"}) {
        threads.push_back(std::async(std::launch::async, work, id));
    }
    threads.clear(); // waits for them
    EXPECT_EQ(read("etc/runlevels"), read(SOURCE_DIR "/machine/etc/runlevels"));
}

TEST_F(AnswerTest, TheExampleOfAHostIsSafeToCopy)
{
    const std::string gone =
        "(until [ -e x ]; do :; done; E off 6; echo $? >status) | "
        "(exec <&-; : >x); until [ -s status ]; do :; done; exit $(cat status)";
    const std::string stopped =
        R"(flock )" LOCK R"( sh -c 'sh -c "echo \$\$ >pid; exec E off 2" 2>&1 |
                                   { read -r line; kill $(cat pid); cat; }')";
    const std::tuple<std::string, int, std::string, std::string> table[] = {
        {"E off 3", 0, "3 switched\n", ""},
        {"E on 3; chkconfig --list cups", 0, "3 switched\ncups           \t0:off\t1:off\t2:on", ""},
        {"E on 3", 1, "", "cups (3) is already on"},
        {"E >/dev/full", 1, "", "cannot write to standard output"},
        {"env --ignore-signal=CHLD E off 4", 0, "4 switched\n", ""},
        {"LANGUAGE=zh_CN:zh E | wc -l", 0, "19\n", ""},
        {"echo 'kill -TERM 0; kill -HUP 0; kill -INT 0; kill -QUIT 0' >hook; setsid -w E off 5", 0,
         "5 switched\n", ""},
        {": >hook; " + gone, 1, "", "cannot write to standard output"},
        {"chkconfig --list sendmail", 0, "2:on", ""},
        {stopped, 0, "stopped while another call was running", ""},
        {"PATH=none " EMBED, 1, "", "no chkconfig on the search path"},
        {"echo x >" CONF "; E", 1, "", "cannot parse"}};
    ASSERT_EQ(symlink(EMBED, "bin/E"), 0);
    for (const auto& [command, status, output, errors] : table) {
        SCOPED_TRACE(command);
        EXPECT_EQ(shell(command), status);
        EXPECT_THAT(read("output"), HasSubstr(output));
        EXPECT_THAT(read("errors"), HasSubstr(errors));
    }
    EXPECT_THAT(read(RECORD), testing::ContainsRegex("postfix off 2345"));
}
