#include "transaction/messages.h"

#include <algorithm>
#include <cstring>
#include <iconv.h>
#include <new>

namespace transaction
{

namespace
{

constexpr std::uint32_t header_size = 4; // of a call block
constexpr std::uint32_t extension_length_at = 2;
constexpr std::uint32_t max_reply_size = 65520; // the module delivers only smaller replies
constexpr ec::EC success = 0x80000000;
constexpr ec::EC failure_code = 0;

/// What an operation takes.
struct Shape {
    const char* operation;
    bool has_flag;
    bool has_ids;
};

constexpr Shape shapes[] = {{"ls_service", false, false},
                            {"optimize_service", false, true},
                            {"restore_service", false, true},
                            {"ignore_service", true, true}};

const Shape* shape_of(const std::string& operation)
{
    const auto* const found =
        std::find_if(std::begin(shapes), std::end(shapes),
                     [&operation](const Shape& each) { return each.operation == operation; });
    return found == std::end(shapes) ? nullptr : found;
}

/// Takes ownership of an object that the framework made. Throws std::bad_alloc if it is null.
template <class T>
owned<T> made(T* object)
{
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return owned<T>(object);
}

/// Adds a parameter that borrows its value.
void add(rpc::IMsgFactory& factory, rpc::IParams& params, unsigned type, const void* value)
{
    params.add(made(factory.new_param(type, value, 0)).release());
}

/// The value of the next parameter; null if it is missing or of another type. Zero is any type.
const void* next_value(rpc::IParams& params, unsigned type)
{
    rpc::IParam* param = nullptr;
    params.next(param);
    return param != nullptr && (type == 0 || param->type() == type) ? param->value() : nullptr;
}

/// The object of the next parameter, whose value is a pointer to it; null as above.
template <class T>
const T* next_object(rpc::IParams& params, unsigned type)
{
    const void* const value = next_value(params, type);
    return value == nullptr ? nullptr : *static_cast<const T* const*>(value);
}

ReplyBlock to_block(rpc::IRequest& message, std::uint32_t header)
{
    const std::uint32_t size = message.size();
    fwbase::IDataBlock* block = nullptr;
    const ec::EC code = fwbase::IFWBase::instance()->mem_manager()->new_block(block, header + size);
    if (!ec::succeeded(code)) {
        throw std::bad_alloc();
    }
    owned<fwbase::IDataBlock> owner(block);
    std::memset(block->buffer(), 0, header);
    if (message.write(block->buffer() + header, size) != size) {
        throw std::bad_alloc();
    }
    block->set_size(header + size);
    return {code, std::move(owner)};
}

/// Converts as the module does: up to the first character that is not valid.
std::string utf8_to_gbk(const std::string& text)
{
    const iconv_t converter = text.empty() ? iconv_t(-1) : iconv_open("GBK", "UTF-8");
    if (converter == iconv_t(-1)) {
        return "";
    }
    std::string gbk(2 * text.size(), '\0');      // enough: a byte of UTF-8 is at most two of GBK
    char* from = const_cast<char*>(text.data()); // iconv does not write through it
    char* to = gbk.data();
    std::size_t left = text.size();
    std::size_t room = gbk.size();
    iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    gbk.resize(gbk.size() - room);
    return gbk;
}

} // namespace

Request read_request(rpc::IMsgFactory& factory, const fwbase::IDataBlock& block)
{
    const owned<rpc::IRequest> message = made(factory.new_request(""));
    const unsigned char* const data = block.data();
    const std::uint32_t size = block.size();
    const std::uint32_t body_at =
        header_size + (size > extension_length_at ? data[extension_length_at] : 0);
    if (size < body_at || message->read(data + body_at, size - body_at) == 0) {
        return {};
    }
    Request request{message->func_name()};
    if (const Shape* const shape = shape_of(request.operation)) {
        const void* const flag = shape->has_flag ? next_value(*message->params(), 0) : nullptr;
        const Ids* const ids =
            shape->has_ids ? next_object<Ids>(*message->params(), rpc::T_UINT32_LIST) : nullptr;
        request.flag = flag != nullptr && *static_cast<const unsigned char*>(flag) != 0;
        request.ids = ids == nullptr ? Ids() : *ids;
        request.is_on_services =
            shape->has_flag == (flag != nullptr) && shape->has_ids == (ids != nullptr);
    }
    return request;
}

owned<fwbase::IDataBlock> make_call_block(rpc::IMsgFactory& factory, const std::string& operation,
                                          bool flag, const Ids& ids)
{
    const owned<rpc::IRequest> message = made(factory.new_request(operation.c_str()));
    const Shape& shape = *shape_of(operation);
    const unsigned char byte = flag ? 1 : 0;
    if (shape.has_flag) {
        add(factory, *message->params(), rpc::T_BOOL, &byte);
    }
    if (shape.has_ids) {
        add(factory, *message->params(), rpc::T_UINT32_LIST, &ids);
    }
    return to_block(*message, header_size).block;
}

bool read_reply(rpc::IMsgFactory& factory, const fwbase::IDataBlock& block,
                std::vector<Reply>& replies)
{
    const owned<rpc::IRequest> message = made(factory.new_request(""));
    rpc::IParam* list = nullptr;
    if (message->read(block.data(), block.size()) != 0) {
        message->params()->next(list);
    }
    if (list == nullptr) {
        return false;
    }
    if (list->type() == rpc::T_UINT32_LIST) {
        for (const unsigned int id : **static_cast<const Ids* const*>(list->value())) {
            replies.push_back({id, "", 0});
        }
        return true;
    }
    using Records = std::vector<rpc::IParams*>;
    for (rpc::IParams* const record : **static_cast<const Records* const*>(list->value())) {
        const auto* const id = static_cast<const rpc::int32*>(next_value(*record, rpc::T_UINT32));
        const auto* const name = next_object<std::string>(*record, rpc::T_STRING);
        next_value(*record, rpc::T_STRING); // the description
        const auto* const op = static_cast<const rpc::int32*>(next_value(*record, rpc::T_UINT32));
        if (id == nullptr || name == nullptr || op == nullptr) {
            return false;
        }
        replies.push_back({*id, *name, static_cast<int>(*op)});
    }
    return true;
}

ReplyBlock ReplyMaker::ids(const Ids& ids) const
{
    return encode(success, made(m_factory.new_param(rpc::T_UINT32_LIST, &ids, 0)));
}

ReplyBlock ReplyMaker::service(const Service* service) const
{
    const Entry entry = service == nullptr ? Entry() : service->entry;
    const auto op = static_cast<rpc::int32>(entry.op);
    const std::string desc = utf8_to_gbk(entry.desc);
    owned<rpc::IParams> record;
    std::vector<rpc::IParams*> records;
    if (service != nullptr) {
        record = made(m_factory.new_record());
        add(m_factory, *record, rpc::T_UINT32, &entry.id);
        add(m_factory, *record, rpc::T_STRING, &entry.name);
        add(m_factory, *record, rpc::T_STRING, &desc);
        add(m_factory, *record, rpc::T_UINT32, &op);
        records.push_back(record.get());
    }
    owned<rpc::IParam> list = made(m_factory.new_param(rpc::T_RECORD_LIST, &records, 0));
    static_cast<void>(record.release()); // the list has taken it over
    return encode(success, std::move(list));
}

ReplyBlock ReplyMaker::failure() const
{
    return encode(failure_code, nullptr);
}

ReplyBlock ReplyMaker::encode(ec::EC code, owned<rpc::IParam> list) const
{
    const owned<rpc::IRequest> reply = made(m_factory.new_reply(m_command, code));
    if (list) {
        reply->params()->add(list.release());
    }
    return reply->size() < max_reply_size ? to_block(*reply, 0) : ReplyBlock{0, nullptr};
}

} // namespace transaction
