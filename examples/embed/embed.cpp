// A minimal host: loads the installed module, lists the services of this machine, and switches one.
//
//     embed              prints the id, the name and the state of each service
//     embed off|on ID    switches one off, or back on
//
// Run it in a folder that holds config/system_operation/conf.xml.
#include <framework/owned.h>
#include <framework/rpc.h>
#include <rpc/entry.h>
#include <transaction/transaction.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <stdexcept>
#include <vector>

namespace
{

using transaction::Ids;
using Replies = std::vector<transaction::Reply>;
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

/// Makes one call of the module and keeps its replies.
class Caller final : public rpc::ICommand
{
public:
    Caller(rpc::IIfaceRealize& module, rpc::IMsgFactory& factory)
        : m_module(module), m_factory(factory)
    {
    }

    Replies call(const std::string& operation, bool flag, const Ids& ids)
    {
        const owned<rpc::IRequest> request(&made(m_factory.new_request(operation.c_str())));
        const auto add = [&](unsigned type, const void* value) {
            request->params()->add(&made(m_factory.new_param(type, value, 0)));
        };
        const unsigned char byte = flag ? 1 : 0;
        if (operation == "ignore_service") {
            add(rpc::T_BOOL, &byte);
        }
        if (operation != "ls_service") {
            add(rpc::T_UINT32_LIST, &ids);
        }
        const std::uint32_t size = request->size();
        fwbase::IDataBlock* in = nullptr;
        fwbase::IFWBase::instance()->mem_manager()->new_block(in, 4 + size);
        const owned<fwbase::IDataBlock> owner(&made(in));
        std::memset(in->buffer(), 0, 4); // the header, without an extension
        request->write(in->buffer() + 4, size);

        m_replies.clear();
        fwbase::IDataBlock* out = nullptr;
        m_module.call_func(in, out, this);
        if (out == nullptr || !ec::succeeded(reply(0, out))) {
            throw std::runtime_error(operation + " has failed");
        }
        return m_replies;
    }

    /// Keeps a reply. Returns a failure if it has no list: then the operation failed.
    ec::EC reply(ec::EC, fwbase::IDataBlock* block) override
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
                m_replies.push_back({id, "", 0});
            }
        } else {
            for (auto* const record : **static_cast<const Records* const*>(list->value())) {
                const auto id = next_value<rpc::int32>(*record);
                const std::string& name = *next_value<const std::string*>(*record);
                next_value<const std::string*>(*record); // the description, in GBK
                m_replies.push_back({id, name, static_cast<int>(next_value<rpc::int32>(*record))});
            }
        }
        return 0x80000000;
    }

private:
    rpc::IIfaceRealize& m_module;
    rpc::IMsgFactory& m_factory;
    Replies m_replies;
};

/// Returns false if the service was not switched.
bool run(const std::string& direction, unsigned int id)
{
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
    Caller caller(*module, *rpc->msg_factory());
    transaction::Transaction transaction(
        "./config/system_operation/conf.xml",
        [&caller](const std::string& operation, bool flag, const Ids& ids) {
            return caller.call(operation, flag, ids);
        },
        [](const std::string& message) { std::fprintf(stderr, "embed: %s\n", message.c_str()); });
    bool is_done = true;
    if (direction.empty()) {
        for (const transaction::Service& each : transaction.list()) {
            std::printf("%u %s %d\n", each.entry.id, each.entry.name.c_str(), each.entry.op);
        }
    } else {
        for (const transaction::Outcome& each :
             transaction.switch_services(Ids(1, id), direction == "on")) {
            std::printf("%u %s %s\n", each.id, each.name.c_str(),
                        each.kind == each.done ? "switched" : each.message.c_str());
            is_done = is_done && each.kind != each.not_handled;
        }
    }
    if (std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output");
    }
    return is_done;
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
    try {
        return run(direction, static_cast<unsigned int>(id)) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "embed: %s\n", error.what());
        return 1;
    }
}
