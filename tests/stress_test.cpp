// What a long-lived host does to the module: many threads, many calls, many loads.
#include "host/framework.h"
#include "host/module.h"
#include "tests/workspace.h"

#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr bool is_sanitized = SANITIZE[0] != '\0';

class StressTest : public Workspace
{
protected:
    StressTest() { install_machine(); }

    /// Works `count` times; the resident memory, once warm, must grow by less than 512 KiB.
    template <class Work>
    static void expect_flat(int count, Work work)
    {
        long pages = 0;
        long warm = 0;
        for (int i = 0; i < count; ++i) {
            work();
            if (i == count / 10) {
                std::ifstream("/proc/self/statm") >> warm >> warm;
            }
        }
        std::ifstream("/proc/self/statm") >> pages >> pages;
        EXPECT_LT(is_sanitized ? 0 : (pages - warm) * sysconf(_SC_PAGESIZE), 512 * 1024);
    }
};

TEST_F(StressTest, ThreadsDoNotDisturbOneAnother)
{
    const host::Module module(MODULE);
    const auto work = [&module](const std::string& id) {
        const auto expect = [&](const std::string& line, const std::string& answer) {
            EXPECT_THAT(call(module.interface(), line), testing::ContainsRegex(answer)) << line;
        };
        for (int round = 0; round < 3; ++round) {
            expect("optimize_service " + id, "^" + id + " success$");
            expect("ls_service", "\\b" + id + " [a-z-]+ 1 optimized .* success$");
            expect("set_optimize_sorce " + id, "^success$");
            expect("restore_service " + id, "^" + id + " success$");
            expect("get_optimize_sorce", "^[1-8] success$");
            expect("ignore_service on " + id, "^" + id + " success$");
            expect("ls_service", "\\b" + id + " [a-z-]+ 2 ignored ");
            expect("ignore_service off " + id, "^" + id + " success$");
        }
    };
    std::vector<std::thread> threads;
    for (int id = 1; id <= 8; ++id) {
        threads.emplace_back(work, std::to_string(id));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(read("etc/runlevels"), read(SOURCE_DIR "/machine/etc/runlevels"));
}

TEST_F(StressTest, LeavesNothingBehindWhenUnloaded)
{
    expect_flat(1000, [] {
        EXPECT_EQ(call(host::Module(MODULE).interface(), "get_optimize_num"), "3 success");
        EXPECT_EQ(host::rpc_references(), 0);
        EXPECT_EQ(dlopen(MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
    });
}

TEST_F(StressTest, StaysFlatOverManyCalls)
{
    const host::Module module(MODULE);
    // Services in each state: those that have nothing to do must not handle one.
    for (const char* const line :
         {"get_optimize_sorce", "get_optimize_num", "ls_reg", "ls_other", "optimize_reg 1 20 15",
          "optimize_other 1 20 15", "restore_reg 1 20 15", "restore_other 1 20 15", "ignore_reg on 1 20 15",
          "ignore_other off 1 20 15"}) {
        ASSERT_THAT(call(module.interface(), line), testing::MatchesRegex("(85 |3 )?success"));
        const auto block = host::make_call_block(host::to_call(host::split(line)));
        expect_flat(is_sanitized ? 2000 : 100000, [&] {
            ec::EC code = 0;
            EXPECT_TRUE(host::run_call(
                module.interface(), *block, [](const auto&) {}, code));
        });
    }
}

} // namespace
