// A minimal host: loads the installed module and answers one call, which lists the services of this
// machine or switches one of them. Here the program itself is the client; the call and the replies
// of a remote one would come and go in the same blocks.
//
//     embed              prints the id, the state and the name of each service
//     embed off|on ID    switches one off, or back on
//
// Run it in a folder that holds config/system_operation/conf.xml.
#include <framework/owned.h>
#include <framework/rpc.h>
#include <fwbase/reply.h>
#include <rpc/entry.h>
#include <transaction/answer.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using Ids = std::vector<unsigned int>;
using Records = std::vector<rpc::IParams*>;

/// Takes an object from a function that returns null on failure.
template <class T>
T& made(T* object)
{
    return object != nullptr ? *object : throw std::bad_alloc();
}

/// The value of the next parameter. Those of type T_UINT32 are stored as they are, the others as
/// pointers to them.
template <class Value>
const Value& next_value(rpc::IParams& params)
{
    rpc::IParam* param = nullptr;
    params.next(param);
    return *static_cast<const Value*>(made(param).value());
}

/// The client's end: prints the replies that come before the final one.
class Client final : public rpc::ICommand
{
public:
    explicit Client(rpc::IMsgFactory& factory) : m_factory(factory) {}

    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> owner(block);
        const owned<rpc::IRequest> message(&made(m_factory.new_request("")));
        rpc::IParam* list = nullptr;
        if (message->read(block->data(), block->size()) != 0) {
            message->params()->next(list);
        }
        if (list == nullptr) {
            return 0;
        }
        if (list->type() == rpc::T_UINT32_LIST) {
            for (const unsigned int id : **static_cast<const Ids* const*>(list->value())) {
                std::printf("%u switched\n", id);
                m_has_items = true;
            }
        } else {
            for (rpc::IParams* record : **static_cast<const Records* const*>(list->value())) {
                const auto id = next_value<rpc::int32>(*record);
                const std::string& name = *next_value<const std::string*>(*record);
                next_value<const std::string*>(*record); // the description, in GBK
                std::printf("%u %u %s\n", id, next_value<rpc::int32>(*record), name.c_str());
            }
        }
        return code;
    }

    /// Whether a service was switched.
    bool has_items() const { return m_has_items; }

private:
    rpc::IMsgFactory& m_factory;
    bool m_has_items = false;
};

/// The call block of an operation; `ids` is null for one that takes none.
owned<fwbase::IDataBlock> make_call(rpc::IMsgFactory& factory, const char* operation,
                                    const Ids* ids)
{
    const owned<rpc::IRequest> request(&made(factory.new_request(operation)));
    if (ids != nullptr) {
        request->params()->add(&made(factory.new_param(rpc::T_UINT32_LIST, ids, 0)));
    }
    const std::uint32_t size = request->size();
    fwbase::IDataBlock* in = nullptr;
    fwbase::IFWBase::instance()->mem_manager()->new_block(in, 4 + size);
    owned<fwbase::IDataBlock> block(&made(in));
    std::memset(block->buffer(), 0, 4); // the header, without an extension
    request->write(block->buffer() + 4, size);
    return block;
}

/// The signals that stop the program. They are ignored, and commands inherit that, because a
/// command that is ended leaves a service half switched. They are blocked, too, because then the
/// system keeps an ignored signal until the program asks for it.
class StopSignals
{
public:
    /// Make this object before any thread starts, so that all threads block the signals.
    StopSignals()
    {
        sigemptyset(&m_all);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&m_all, number);
        }
        sigprocmask(SIG_BLOCK, &m_all, nullptr);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            std::signal(number, SIG_IGN);
        }
    }

    /// Throws std::runtime_error if one of the signals has arrived.
    void check() const
    {
        const timespec now = {0, 0};
        if (sigtimedwait(&m_all, nullptr, &now) != -1) {
            throw std::runtime_error("stopped while another call was running");
        }
    }

private:
    sigset_t m_all;
};

/// Makes the call. Returns false if it failed or the service was not switched.
bool run(const char* operation, const Ids* ids)
{
    const StopSignals stop_signals;
    void* const library = dlopen(MODULE, RTLD_NOW); // stays loaded until the program ends
    const auto entry = reinterpret_cast<decltype(rpc_ireal_Optimize_Option)*>(
        library == nullptr ? nullptr : dlsym(library, "rpc_ireal_Optimize_Option"));
    if (entry == nullptr) {
        throw std::runtime_error(dlerror());
    }
    const owned<rpc::IIfaceRealize> module(entry());
    void* service = nullptr;
    if (!ec::succeeded(module->init(nullptr)) ||
        !ec::succeeded(
            fwbase::IFWBase::instance()->obj_registry()->query("obj.fws.rpc", &service))) {
        throw std::runtime_error("the module cannot be initialised");
    }
    const owned<rpc::IRpcService> rpc(static_cast<rpc::IRpcService*>(service));
    rpc::IMsgFactory& factory = *rpc->msg_factory();

    Client client(factory);
    transaction::Waiting waiting; // for the calls of other programs
    waiting.check = [&stop_signals] { stop_signals.check(); };
    const owned<fwbase::IDataBlock> in = make_call(factory, operation, ids);
    fwbase::IDataBlock* out = nullptr;
    transaction::answer(
        *module, in.get(), out, &client, "./config/system_operation/conf.xml",
        [](const std::string& message) {
            const std::string reason = fwbase::take_last_xml_error();
            const bool is_told = message.find(reason) != std::string::npos;
            std::fprintf(stderr, "embed: %s\n",
                         (is_told ? message : message + ": " + reason).c_str());
        },
        waiting);
    const owned<fwbase::IDataBlock> reply(out);
    if (std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output");
    }
    return reply && ec::succeeded(fwbase::reply_code(*reply)) &&
           (ids == nullptr || client.has_items());
}

} // namespace

int main(int count, char** arguments)
{
    // gettext prefers LANGUAGE to LC_ALL, and in a translated listing every service reads as off.
    unsetenv("LANGUAGE");
    const std::string direction = count == 3 ? arguments[1] : "";
    const std::string digits = count == 3 ? arguments[2] : "0";
    const unsigned long long id = std::strtoull(digits.c_str(), nullptr, 10);
    if ((count != 1 && direction != "off" && direction != "on") || digits.empty() ||
        digits.find_first_not_of("0123456789") != std::string::npos || id > UINT32_MAX) {
        std::fputs("usage: embed [off|on ID]\n", stderr);
        return 2;
    }
    std::signal(SIGCHLD, SIG_DFL); // the module needs the status of its commands
    std::signal(SIGPIPE, SIG_IGN); // a client that closes its connection must not end the program
    const Ids ids(1, static_cast<unsigned int>(id));
    try {
        if (count == 1) {
            return run("ls_service", nullptr) ? 0 : 1;
        }
        return run(direction == "off" ? "optimize_service" : "restore_service", &ids) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "embed: %s\n", error.what());
        return 1;
    }
}
