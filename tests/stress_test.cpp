// What a long-lived host does to the module: many threads, many calls, many loads.
#include "host/call.h"
#include "host/framework.h"
#include "host/module.h"
#include "tests/workspace.h"

#include <atomic>
#include <dlfcn.h>
#include <fstream>
#include <set>
#include <thread>
#include <unistd.h>

namespace
{

constexpr bool is_sanitized = SANITIZE[0] != '\0';

class StressTest : public Workspace
{
protected:
    StressTest() { EXPECT_EQ(std::system("cp -r " SOURCE_DIR "/machine/. ."), 0); }

    struct Answer {
        ec::EC code = 0;
        rpc::int32 value = 0;
        std::vector<rpc::int32> ids;                           // of all item replies
        std::vector<std::pair<rpc::int32, rpc::int32>> states; // of all listed services
    };

    static Answer call(rpc::IIfaceRealize& interface, const std::string& operation,
                       const host::Arguments& arguments = {})
    {
        Answer answer;
        ec::EC result = 0;
        const auto on_item = [&answer](const host::Message& item) {
            const host::Param& param = *item.all()[0];
            if (param.type() == rpc::T_UINT32_LIST) {
                answer.ids.push_back(param.numbers().at(0));
            } else {
                const auto& fields = param.records().at(0)->all();
                answer.states.emplace_back(fields[0]->number(), fields[3]->number());
            }
        };
        const auto reply = host::call(interface, operation, arguments, on_item, result);
        if (reply) {
            answer.code = reply->code();
            if (!reply->all().empty() && reply->all()[0]->type() == rpc::T_UINT32) {
                answer.value = reply->all()[0]->number();
            }
        }
        return answer;
    }

    /// Resident memory in KiB.
    static long resident()
    {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        return pages * sysconf(_SC_PAGESIZE) / 1024;
    }
};

TEST_F(StressTest, ThreadsDoNotDisturbOneAnother)
{
    constexpr rpc::int32 count = 8;
    const host::Module module(MODULE);
    rpc::IIfaceRealize& interface = module.interface();
    std::atomic<int> wrong{0};
    const auto work = [&](rpc::int32 id) {
        const auto check = [&wrong](bool right) { wrong += !right; };
        const std::vector<unsigned int> own = {id};
        const auto change = [&](const char* operation, std::optional<bool> flag = {}) {
            const Answer answer = call(interface, operation, {flag, {}, own});
            check(answer.code == 0x80000000 && answer.ids == std::vector<rpc::int32>{id});
        };
        const auto expect_state = [&](rpc::int32 state) {
            const Answer answer = call(interface, "ls_service");
            check(answer.states.size() == 19 &&
                  std::count(answer.states.begin(), answer.states.end(), std::pair(id, state)) ==
                      1);
        };
        for (int round = 0; round < 3; ++round) {
            change("optimize_service");
            expect_state(1);
            check(call(interface, "set_optimize_sorce", {{}, id, {}}).code == 0x80000000);
            change("restore_service");
            expect_state(0);
            const rpc::int32 score = call(interface, "get_optimize_sorce").value;
            check(score >= 1 && score <= count);
            change("ignore_service", true);
            expect_state(2);
            check(call(interface, "optimize_service", {{}, {}, own}).ids.empty());
            change("ignore_service", false);
            check(call(interface, "get_optimize_num").value == 3);
            check(call(interface, "ignore_other", {true, {}, own}).code == 0x80000000);
        }
    };
    EXPECT_EQ(call(interface, "ls_service").states.size(), 19U);
    std::vector<std::thread> threads;
    for (rpc::int32 id = 1; id <= count; ++id) {
        threads.emplace_back(work, id);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(read("etc/runlevels"), read(SOURCE_DIR "/machine/etc/runlevels"));
}

TEST_F(StressTest, LeavesNothingBehindWhenUnloaded)
{
    long warm = 0;
    for (int i = 0; i < 1000; ++i) {
        {
            const host::Module module(MODULE);
            EXPECT_EQ(call(module.interface(), "get_optimize_num").value, 3U);
        }
        EXPECT_EQ(host::rpc_references(), 0);
        ASSERT_EQ(dlopen(MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
        if (i == 100) {
            warm = resident();
        }
    }
    EXPECT_TRUE(is_sanitized || resident() - warm < 512) << resident() - warm << " KiB";
}

TEST_F(StressTest, StaysFlatOverManyCalls)
{
    const int calls = is_sanitized ? 2000 : 100000;
    const host::Module module(MODULE);
    for (const char* const operation :
         {"get_optimize_sorce", "get_optimize_num", "ls_reg", "ls_other", "optimize_reg",
          "optimize_other", "restore_reg", "restore_other", "ignore_reg", "ignore_other"}) {
        const std::string name = operation;
        host::Arguments arguments;
        if (name[0] == 'i') {
            arguments.flag = true;
        }
        if (name.compare(0, 3, "get") != 0 && name.compare(0, 2, "ls") != 0) {
            arguments.ids = {1, 2, 3};
        }
        long warm = 0;
        for (int i = 0; i < calls; ++i) {
            ASSERT_EQ(call(module.interface(), name, arguments).code, 0x80000000);
            if (i == calls / 10) {
                warm = resident();
            }
        }
        EXPECT_TRUE(is_sanitized || resident() - warm < 256) << name << resident() - warm << " KiB";
    }
}

} // namespace
