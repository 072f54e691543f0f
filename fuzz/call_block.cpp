// Runs a call block through the interface object; reads its message and writes it again.
#include "fuzz/target.h"
#include "rpc/system_option_s.h"

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const FuzzWorkspace workspace;
    static const ec::EC ready = rpc_ireal_Optimize_Option()->init(nullptr);
    assert(ec::succeeded(ready));
    // No call switches a service: the first is off already, the name of the second is refused.
    FuzzWorkspace::write_conf("<info id='1' level='off'/><info id='2' name='&amp;' op='1'/>"
                              "<info id='3' op='2'/>");
    ec::EC code = 0;
    const auto reply = host::call_module(
        *rpc_ireal_Optimize_Option(), *raw_block(std::string(data, data + size)),
        [](const fwbase::Message&) {}, code);
    assert(ec::succeeded(code) == (reply != nullptr));

    fwbase::Message message("");
    if (size > 4 && message.read(data + 4, static_cast<std::uint32_t>(size) - 4) != 0) {
        std::vector<unsigned char> bytes(message.size());
        message.write(bytes.data(), message.size());
        assert(std::equal(bytes.begin(), bytes.end(), data + 4, data + size));
    }
    return 0;
}
