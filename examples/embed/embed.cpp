// A minimal host: loads the module, lists the services of this machine and prints their ids, names
// and states.
//
//     c++ -std=c++17 embed.cpp -o embed $(pkg-config --cflags --libs optimize-option) -ldl
//     ./embed $(pkg-config --variable=module optimize-option)
//
// Run it in a folder that holds config/system_operation/conf.xml. A host for real use also has to
// carry calls to their end, see interface.md: "What a host has to ensure".
#include <framework/owned.h>
#include <framework/rpc.h>

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace
{

/// The RPC service, which makes all messages. Its reference is given back by the guard.
owned<rpc::IRpcService> find_rpc_service()
{
    void* service = nullptr;
    fwbase::IFWBase::instance()->obj_registry()->query("obj.fws.rpc", &service);
    return owned<rpc::IRpcService>(static_cast<rpc::IRpcService*>(service));
}

/// The value of the next parameter of a list. T_UINT32 values are borrowed as they are, those of
/// the other types through a pointer.
template <class Value>
Value next_value(rpc::IParams& params)
{
    rpc::IParam* param = nullptr;
    params.next(param);
    return *static_cast<const Value*>(param->value());
}

/// Receives the replies that an operation sends while it runs: one service each.
class ServicePrinter final : public rpc::ICommand
{
public:
    explicit ServicePrinter(rpc::IMsgFactory& factory) : m_factory(factory) {}

    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> owner(block);
        const owned<rpc::IRequest> message(m_factory.new_request(""));
        if (!message || message->read(block->data(), block->size()) == 0) {
            return 0; // bit 31 clear: failure
        }
        using Records = std::vector<rpc::IParams*>;
        for (rpc::IParams* const record : *next_value<const Records*>(*message->params())) {
            const auto id = next_value<rpc::int32>(*record);
            const std::string& name = *next_value<const std::string*>(*record);
            next_value<const std::string*>(*record); // the description, in GBK
            std::printf("%u %s %u\n", id, name.c_str(), next_value<rpc::int32>(*record));
        }
        return code;
    }

private:
    rpc::IMsgFactory& m_factory;
};

/// A call block: four bytes of header without an extension, then the request. Null if it cannot be
/// made.
owned<fwbase::IDataBlock> make_call(rpc::IMsgFactory& factory, const char* operation)
{
    const owned<rpc::IRequest> request(factory.new_request(operation));
    const std::uint32_t size = request ? request->size() : 0;
    fwbase::IDataBlock* block = nullptr;
    fwbase::IMemManager& memory = *fwbase::IFWBase::instance()->mem_manager();
    if (size == 0 || !ec::succeeded(memory.new_block(block, 4 + size))) {
        return nullptr;
    }
    std::memset(block->buffer(), 0, 4);
    request->write(block->buffer() + 4, size);
    return owned<fwbase::IDataBlock>(block);
}

} // namespace

int main(int count, char** arguments)
{
    void* const library = count == 2 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
    void* const entry = library ? dlsym(library, "rpc_ireal_Optimize_Option") : nullptr;
    if (entry == nullptr) {
        std::fprintf(stderr, "embed: %s\n", count == 2 ? dlerror() : "usage: embed MODULE");
        return 1;
    }
    rpc::IIfaceRealize& module = *reinterpret_cast<rpc::IIfaceRealize* (*)()>(entry)();
    bool listed = false;
    if (ec::succeeded(module.init(nullptr))) {
        const owned<rpc::IRpcService> service = find_rpc_service();
        ServicePrinter command(*service->msg_factory());
        fwbase::IDataBlock* reply = nullptr;
        if (const auto call = make_call(*service->msg_factory(), "ls_service")) {
            module.call_func(call.get(), reply, &command);
        }
        listed = reply != nullptr;
        owned<fwbase::IDataBlock>(reply).reset();
    }
    module.release();
    dlclose(library);
    return listed ? 0 : 1;
}
