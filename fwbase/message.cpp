#include "fwbase/message.h"

#include "fwbase/reply.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace fwbase
{

/// Writes bytes while they fit into the buffer, and counts all of them.
class Writer
{
public:
    Writer(unsigned char* to, std::size_t room) : m_to(to), m_room(room) {}

    void bytes(const void* data, std::size_t size)
    {
        if (m_to != nullptr && m_size + size <= m_room && size != 0) {
            std::memcpy(m_to + m_size, data, size);
        }
        m_size += size;
    }
    void number(std::uint32_t value, int width)
    {
        for (int i = 0; i < width; ++i) {
            const auto byte = static_cast<unsigned char>(value >> (8 * i));
            bytes(&byte, 1);
        }
    }
    void count(std::size_t value) { number(static_cast<std::uint32_t>(value), 4); }

    // One overload for each part of the wire format.
    void value(unsigned char flag) { number(flag, 1); }
    void value(std::uint32_t value) { number(value, 4); }
    void value(const std::string& text)
    {
        count(text.size());
        bytes(text.data(), text.size());
    }
    void value(const rpc::IParams* record) { static_cast<const Params*>(record)->write(*this); }
    void value(const owned<Param>& param) { param->write(*this); }
    template <class Element>
    void value(const std::vector<Element>& list)
    {
        count(list.size());
        for (const Element& element : list) {
            value(element);
        }
    }

    std::size_t size() const { return m_size; }

private:
    unsigned char* m_to;
    std::size_t m_room;
    std::size_t m_size = 0;
};

/// Reads from a byte range. After a read beyond its end, every further read fails.
class Reader
{
public:
    Reader(const unsigned char* data, std::size_t size) : m_at(data), m_left(size) {}

    /// Returns null if fewer than `size` bytes are left.
    const unsigned char* bytes(std::size_t size)
    {
        if (size > m_left) {
            m_failed = true;
            m_left = 0;
            return nullptr;
        }
        const unsigned char* const data = m_at;
        m_at += size;
        m_left -= size;
        return data;
    }
    std::uint32_t number(int width)
    {
        std::uint32_t value = 0;
        const unsigned char* const data = bytes(static_cast<std::size_t>(width));
        for (int i = 0; data != nullptr && i < width; ++i) {
            value |= static_cast<std::uint32_t>(data[i]) << (8 * i);
        }
        return value;
    }
    std::string text(std::size_t size)
    {
        const unsigned char* const data = bytes(size);
        return data == nullptr ? std::string() : std::string(data, data + size);
    }
    /// Reads a count of elements of at least `width` bytes each. Fails if the remaining bytes
    /// cannot hold that many, so that callers never allocate for a false count.
    std::uint32_t count(std::size_t width)
    {
        const std::uint32_t value = number(4);
        if (value > m_left / width) {
            bytes(m_left + 1);
            return 0;
        }
        return value;
    }

    bool failed() const { return m_failed; }
    bool at_end() const { return m_left == 0; }

private:
    const unsigned char* m_at;
    std::size_t m_left;
    bool m_failed = false;
};

// --- Param ---

template <class Value>
void Param::hold(const void* value, bool owns)
{
    const auto* const object = static_cast<const Value*>(value);
    m_value = object;
    if (owns) {
        m_owned = {object, [](const void* held) { delete static_cast<const Value*>(held); }};
    }
}

owned<Param> Param::make(unsigned type, const void* value, bool owns)
{
    if (value == nullptr) {
        return nullptr;
    }
    owned<Param> param(new Param);
    param->m_type = type;
    switch (type) {
    case rpc::T_BOOL:
        param->hold<unsigned char>(value, owns);
        break;
    case rpc::T_UINT32:
        param->hold<rpc::int32>(value, owns);
        break;
    case rpc::T_UINT32_LIST:
        param->hold<std::vector<unsigned int>>(value, owns);
        break;
    case rpc::T_STRING:
        param->hold<std::string>(value, owns);
        break;
    case rpc::T_RECORD_LIST: {
        const Records& records = *static_cast<const Records*>(value);
        param->m_records.reserve(records.size());
        for (rpc::IParams* const record : records) {
            param->m_records.emplace_back(static_cast<Params*>(record));
        }
        param->hold<Records>(value, owns); // last: a failure must not free the caller's value
        break;
    }
    default:
        return nullptr;
    }
    return param;
}

const void* Param::value() const
{
    const bool is_plain = m_type == rpc::T_BOOL || m_type == rpc::T_UINT32;
    const auto storage = [is_plain](const auto& object) -> const void* {
        return is_plain ? object : static_cast<const void*>(&object);
    };
    return std::visit(storage, m_value);
}

void Param::write(Writer& writer) const
{
    writer.number(m_type, 1);
    std::visit([&writer](const auto* object) { writer.value(*object); }, m_value);
}

namespace
{

/// Makes a parameter that owns the value.
template <class Value>
owned<Param> make_owning(unsigned type, Value value)
{
    auto object = std::make_unique<Value>(std::move(value));
    owned<Param> param = Param::make(type, object.get(), true);
    object.release();
    return param;
}

} // namespace

owned<Param> Param::read(Reader& reader, bool in_record)
{
    const std::uint32_t type = reader.number(1);
    owned<Param> param;
    switch (type) {
    case rpc::T_BOOL:
        param = make_owning(type, static_cast<unsigned char>(reader.number(1)));
        break;
    case rpc::T_UINT32:
        param = make_owning(type, rpc::int32{reader.number(4)});
        break;
    case rpc::T_UINT32_LIST: {
        std::vector<unsigned int> numbers(reader.count(4));
        std::generate(numbers.begin(), numbers.end(), [&reader] { return reader.number(4); });
        param = make_owning(type, std::move(numbers));
        break;
    }
    case rpc::T_STRING:
        param = make_owning(type, reader.text(reader.count(1)));
        break;
    case rpc::T_RECORD_LIST: {
        if (in_record) {
            return nullptr;
        }
        std::vector<owned<Params>> containers;
        Records records;
        for (std::uint32_t left = reader.count(4); left != 0; --left) {
            containers.push_back(owned<Params>(new Params));
            records.push_back(containers.back().get());
            if (!containers.back()->read(reader, true)) {
                return nullptr;
            }
        }
        param = make_owning(type, std::move(records));
        for (owned<Params>& container : containers) {
            container.release();
        }
        break;
    }
    default:
        break;
    }
    return reader.failed() ? nullptr : std::move(param);
}

// --- Params ---

void Params::add(rpc::IParam* param)
{
    owned<Param> taken(static_cast<Param*>(param));
    m_params.push_back(std::move(taken));
}

void Params::next(rpc::IParam*& param)
{
    if (m_next < m_params.size()) {
        param = m_params[m_next++].get();
    }
}

void Params::write(Writer& writer) const
{
    writer.value(m_params);
}

bool Params::read(Reader& reader, bool in_record)
{
    for (std::uint32_t left = reader.count(2); left != 0; --left) {
        owned<Param> param = Param::read(reader, in_record);
        if (!param) {
            return false;
        }
        m_params.push_back(std::move(param));
    }
    return !reader.failed();
}

// --- Message ---

void Message::write(Writer& writer) const
{
    if (m_is_reply) {
        writer.bytes("R", 1);
        writer.number(m_code, 4);
    } else {
        writer.bytes("Q", 1);
        writer.number(static_cast<std::uint32_t>(m_name.size()), 2);
        writer.bytes(m_name.data(), m_name.size());
    }
    m_params->write(writer);
}

std::uint32_t Message::write(unsigned char* buffer, std::uint32_t size)
{
    Writer writer(buffer, size);
    write(writer);
    return writer.size() <= size ? static_cast<std::uint32_t>(writer.size()) : 0;
}

std::uint32_t Message::size()
{
    Writer writer(nullptr, 0);
    write(writer);
    constexpr std::size_t largest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(writer.size(), largest));
}

int Message::read(const unsigned char* data, std::uint32_t size)
{
    Reader reader(data, size);
    const std::uint32_t kind = reader.number(1);
    m_is_reply = kind == 'R';
    m_code = m_is_reply ? reader.number(4) : 0;
    m_name = m_is_reply ? std::string() : reader.text(reader.number(2));
    m_params.reset(new Params);
    if ((kind == 'Q' || kind == 'R') && m_name.find('\0') == std::string::npos &&
        m_params->read(reader, false) && reader.at_end()) {
        return 1;
    }
    m_is_reply = false;
    m_name.clear();
    m_params.reset(new Params);
    return 0;
}

// --- MsgFactory ---

namespace
{

constexpr std::size_t longest_name = 0xFFFF; // in bytes, of a request

/// The result of `make`, or null if out of memory.
template <class Make>
auto or_null(Make make) -> decltype(make())
{
    try {
        return make();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace

rpc::IRequest* MsgFactory::new_request(const char* name)
{
    return std::strlen(name) > longest_name ? nullptr
                                            : or_null([name] { return new Message(name); });
}

rpc::IRequest* MsgFactory::new_reply(rpc::ICommand*, ec::EC code)
{
    return or_null([code] { return new Message(code); });
}

rpc::IParams* MsgFactory::new_record()
{
    return or_null([] { return new Params; });
}

rpc::IParam* MsgFactory::new_param(unsigned type, const void* value, int hand_over)
{
    return or_null([=] { return Param::make(type, value, hand_over != 0).release(); });
}

ec::EC reply_code(const IDataBlock& block)
{
    Message message("");
    const bool is_reply = message.read(block.data(), block.size()) != 0 && message.is_reply();
    return is_reply ? message.code() : 0;
}

} // namespace fwbase
