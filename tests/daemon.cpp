// A daemon as authors of hosts write it: daemon MODULE ID... starts a thread for each service, as
// for a client that switches it off and on again and again, until SIGTERM.
#include "framework/descriptor.h"
#include "host/call.h"
#include "host/module.h"
#include "transaction/answer.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <sys/signalfd.h>
#include <thread>

struct Client final : rpc::ICommand {
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        block->release();
        return code;
    }
};

int main(int count, char** arguments)
{
    unsetenv("LANGUAGE");
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    std::signal(SIGTERM, SIG_IGN);
    const host::Module module(arguments[1]);
    std::atomic<bool> is_ending{false};
    std::vector<std::thread> threads;
    for (int at = 2; at < count; ++at) {
        const transaction::Ids ids = {static_cast<unsigned int>(std::atoi(arguments[at]))};
        threads.emplace_back([&module, &is_ending, ids] {
            for (bool on = false; !is_ending; on = !on) {
                Client client;
                fwbase::IDataBlock* out = nullptr;
                const auto in = host::make_call_block(
                    {on ? "restore_service" : "optimize_service", {{}, {}, ids}});
                transaction::answer(module.interface(), in.get(), out, &client,
                                    "./config/system_operation/conf.xml", [](const auto&) {});
                const owned<fwbase::IDataBlock> reply(out);
            }
        });
    }
    const fwbase::Descriptor signals(signalfd(-1, &stop, SFD_CLOEXEC));
    signalfd_siginfo signal;
    const bool has_come = ::read(signals.get(), &signal, sizeof signal) == sizeof signal;
    is_ending = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return has_come ? 0 : 1;
}
