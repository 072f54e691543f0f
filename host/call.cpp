#include "host/call.h"

#include "fwbase/xml_document.h"

#include <cstring>
#include <new>
#include <stdexcept>

namespace host
{

namespace
{

constexpr std::uint32_t header_size = 4;

/// Decodes the reply in a block; null if it is not a valid reply.
owned<fwbase::Message> decode(const fwbase::IDataBlock& block)
{
    owned<fwbase::Message> message(new fwbase::Message(""));
    if (message->read(block.data(), block.size()) == 0 || !message->is_reply()) {
        return nullptr;
    }
    return message;
}

/// Decodes the replies of one call and passes them on.
class ReplyReceiver final : public rpc::ICommand
{
public:
    explicit ReplyReceiver(const std::function<void(const fwbase::Message&)>& on_item)
        : m_on_item(on_item)
    {
    }

    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> taken(block);
        const owned<fwbase::Message> message = decode(*taken);
        if (!message) {
            return 0;
        }
        m_on_item(*message);
        return code;
    }

private:
    const std::function<void(const fwbase::Message&)>& m_on_item;
};

} // namespace

owned<fwbase::IDataBlock> make_call_block(const Call& call)
{
    fwbase::Message request(call.operation.c_str());
    const auto add = [&request](unsigned type, const void* value) {
        request.params()->add(fwbase::Param::make(type, value, false).release());
    };
    const unsigned char flag = call.arguments.flag.value_or(false) ? 1 : 0;
    if (call.arguments.flag) {
        add(rpc::T_BOOL, &flag);
    }
    if (call.arguments.value) {
        add(rpc::T_UINT32, &*call.arguments.value);
    }
    if (call.arguments.ids) {
        add(rpc::T_UINT32_LIST, &*call.arguments.ids);
    }

    const std::uint32_t size = request.size();
    fwbase::IDataBlock* made = nullptr;
    if (!ec::succeeded(
            fwbase::IFWBase::instance()->mem_manager()->new_block(made, header_size + size))) {
        throw std::bad_alloc();
    }
    owned<fwbase::IDataBlock> block(made);
    std::memset(block->buffer(), 0, header_size);
    request.write(block->buffer() + header_size, size);
    return block;
}

owned<fwbase::Message> run_call(rpc::IIfaceRealize& interface, const fwbase::IDataBlock& block,
                                const std::function<void(const fwbase::Message&)>& on_item,
                                ec::EC& result)
{
    ReplyReceiver receiver(on_item);
    fwbase::IDataBlock* out = nullptr;
    result = interface.call_func(&block, out, &receiver);
    const owned<fwbase::IDataBlock> reply(out);
    return reply ? decode(*reply) : nullptr;
}

std::vector<unsigned int> run_silently(const Call& call, rpc::IIfaceRealize& interface)
{
    std::vector<unsigned int> handled;
    const auto on_item = [&handled](const fwbase::Message& item) { add_ids(item, handled); };
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    ec::EC result = 0;
    const owned<fwbase::Message> reply =
        run_call(interface, *make_call_block(call), on_item, result);
    if (!reply || !ec::succeeded(reply->code())) {
        const std::string reason = fwbase::take_last_xml_error();
        throw std::runtime_error(call.operation +
                                 (reason.empty() ? " failed" : " failed: " + reason));
    }
    return handled;
}

void add_ids(const fwbase::Message& reply, std::vector<unsigned int>& ids)
{
    for (const owned<fwbase::Param>& param : reply.all()) {
        if (param->type() == rpc::T_UINT32_LIST) {
            ids.insert(ids.end(), param->numbers().begin(), param->numbers().end());
        }
    }
}

std::vector<unsigned int> missing_ids(const std::vector<unsigned int>& requested,
                                      const std::vector<unsigned int>& handled)
{
    std::vector<unsigned int> missing;
    auto next = handled.begin();
    for (const unsigned int id : requested) {
        if (next != handled.end() && *next == id) {
            ++next;
        } else {
            missing.push_back(id);
        }
    }
    return missing;
}

std::string to_text(const std::vector<unsigned int>& ids)
{
    std::string text;
    for (const unsigned int id : ids) {
        text += " " + std::to_string(id);
    }
    return text;
}

} // namespace host
