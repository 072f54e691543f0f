#include "host/call.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace host
{

namespace
{

constexpr std::uint32_t header_size = 4;
constexpr std::array<unsigned, 4> service_fields = {rpc::T_UINT32, rpc::T_STRING, rpc::T_STRING,
                                                    rpc::T_UINT32}; // id, name, description, state

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

owned<fwbase::Message> call_module(rpc::IIfaceRealize& interface, const fwbase::IDataBlock& block,
                                   const std::function<void(const fwbase::Message&)>& on_item,
                                   ec::EC& result)
{
    ReplyReceiver receiver(on_item);
    fwbase::IDataBlock* out = nullptr;
    result = interface.call_func(&block, out, &receiver);
    const owned<fwbase::IDataBlock> reply(out);
    return reply ? decode(*reply) : nullptr;
}

void add_replies(const fwbase::Message& message, std::vector<transaction::Reply>& replies)
{
    for (const owned<fwbase::Param>& param : message.all()) {
        if (param->type() == rpc::T_UINT32_LIST) {
            for (const unsigned int id : param->numbers()) {
                replies.push_back({id, "", 0});
            }
        } else if (param->type() == rpc::T_RECORD_LIST) {
            for (const owned<fwbase::Params>& record : param->records()) {
                const std::vector<owned<fwbase::Param>>& fields = record->all();
                const auto is = [](const owned<fwbase::Param>& field, unsigned type) {
                    return field->type() == type;
                };
                if (std::equal(fields.begin(), fields.end(), service_fields.begin(),
                               service_fields.end(), is)) {
                    replies.push_back({fields[0]->number(), fields[1]->text(),
                                       static_cast<int>(fields[3]->number())});
                }
            }
        }
    }
}

} // namespace host
