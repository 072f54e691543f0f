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

    /// Works `count` times; the resident memory, once warm, must grow by less than so many KiB.
    template <class Work>
    static void expect_flat(int count, long limit, Work work)
    {
        long warm = 0;
        for (int i = 0; i < count; ++i) {
            work();
            if (i == count / 10) {
                warm = resident();
            }
        }
        EXPECT_LT(is_sanitized ? 0 : resident() - warm, limit);
    }

private:
    static long resident()
    {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        return pages * sysconf(_SC_PAGESIZE) / 1024;
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
            expect("optimize_service " + id, "^item ids " + id + "; 80000000 ids$");
            expect("ls_service", "item list " + id + " 1 .*; 80000000 list$");
            expect("set_optimize_sorce " + id, "^80000000$");
            expect("restore_service " + id, "^item ids " + id + "; 80000000 ids$");
            expect("get_optimize_sorce", "^80000000 =[1-8]$");
            expect("ignore_service on " + id, "^item ids " + id + "; 80000000 ids$");
            expect("ls_service", "list " + id + " 2 ");
            expect("get_optimize_num", "^80000000 =3$");
            expect("restore_other " + id, "^80000000 ids$");
            expect("ignore_service off " + id, "^item ids " + id + "; 80000000 ids$");
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
    expect_flat(1000, 512, [] {
        EXPECT_EQ(call(host::Module(MODULE).interface(), "get_optimize_num"), "80000000 =3");
        EXPECT_EQ(host::rpc_references(), 0);
        EXPECT_EQ(dlopen(MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
    });
}

TEST_F(StressTest, StaysFlatOverManyCalls)
{
    const host::Module module(MODULE);
    for (const char* const line :
         {"get_optimize_sorce", "get_optimize_num", "ls_reg", "ls_other", "optimize_reg 1 2",
          "optimize_other 1 2", "restore_reg 1 2", "restore_other 1 2", "ignore_reg on 1 2",
          "ignore_other on 1 2"}) {
        SCOPED_TRACE(line);
        expect_flat(is_sanitized ? 2000 : 100000, 256,
                    [&] { EXPECT_EQ(call(module.interface(), line).substr(0, 8), "80000000"); });
    }
}

} // namespace
