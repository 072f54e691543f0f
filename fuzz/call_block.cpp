// A call block through the interface object, and its message through reading and writing.
#include "fuzz/target.h"
#include "rpc/system_option_s.h"

/// Takes replies, which must read as such.
struct Command final : rpc::ICommand {
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> taken(block);
        host::Message message("");
        assert(message.read(block->data(), block->size()) != 0 && message.is_reply());
        return code;
    }
};

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Place place;
    static const ec::EC ready = rpc_ireal_Optimize_Option()->init(nullptr);
    assert(ec::succeeded(ready));
    // No service is ever switched: the first one is off, the second one's name is refused.
    Place::write_conf("<info id='1' level='off'/><info id='2' name='&amp;' op='1'/>"
                      "<info id='3' op='2'/>");
    Command command;
    fwbase::IDataBlock* out = nullptr;
    const ec::EC code = rpc_ireal_Optimize_Option()->call_func(
        raw_block(std::string(data, data + size)).get(), out, &command);
    assert(ec::succeeded(code) == (out != nullptr));
    if (out != nullptr) {
        command.reply(code, out);
    }

    host::Message message("");
    if (size > 4 && message.read(data + 4, static_cast<std::uint32_t>(size) - 4) != 0) {
        std::vector<unsigned char> bytes(message.size());
        message.write(bytes.data(), message.size());
        assert(std::equal(bytes.begin(), bytes.end(), data + 4, data + size));
    }
    return 0;
}
