// Messages of the reference framework and their wire format.
//
// All integers are unsigned and little-endian. The count before [] says how often its content
// repeats.
//
//   message = 'Q' name-length:2 name params       a request; the name contains no NUL
//           | 'R' code:4 params                   a reply
//   params  = count:4 [ tag:1 value ]
//   value   = byte:1                              T_BOOL
//           | number:4                            T_UINT32
//           | count:4 [ number:4 ]                T_UINT32_LIST
//           | length:4 bytes                      T_STRING
//           | count:4 [ params ]                  T_RECORD_LIST; records do not hold record lists
//
// A message ends with its last parameter. Further bytes make it invalid.
#pragma once

#include "framework/owned.h"
#include "framework/rpc.h"

#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace fwbase
{

class Params;
class Reader;
class Writer;

/// A parameter. Borrows or owns its value object.
class Param final : public rpc::IParam
{
public:
    /// As rpc::IMsgFactory::new_param. Returns null if `type` is not a ParamType or `value` is
    /// null.
    static owned<Param> make(unsigned type, const void* value, bool owns);
    /// Returns null if the bytes are not a valid parameter.
    static owned<Param> read(Reader& reader, bool in_record);

    const void* value() const override;
    unsigned type() const override { return m_type; }
    void release() override { delete this; }

    void write(Writer& writer) const;

    // The typed value. Call only the accessor that matches type().
    rpc::int32 number() const { return *std::get<const rpc::int32*>(m_value); }
    const std::vector<unsigned int>& numbers() const
    {
        return *std::get<const std::vector<unsigned int>*>(m_value);
    }
    const std::string& text() const { return *std::get<const std::string*>(m_value); }
    const std::vector<owned<Params>>& records() const { return m_records; }

private:
    using Records = std::vector<rpc::IParams*>;

    Param() = default;
    ~Param() = default;

    template <class Value>
    void hold(const void* value, bool owns);

    unsigned m_type = 0;
    std::variant<const unsigned char*, const rpc::int32*, const std::vector<unsigned int>*,
                 const std::string*, const Records*>
        m_value;
    std::unique_ptr<const void, void (*)(const void*)> m_owned{nullptr, nullptr}; // if owned
    std::vector<owned<Params>> m_records; // the containers of a T_RECORD_LIST
};

class Params final : public rpc::IParams
{
public:
    void add(rpc::IParam* param) override;
    void next(rpc::IParam*& param) override;
    void release() override { delete this; }

    void write(Writer& writer) const;
    bool read(Reader& reader, bool in_record);

    const std::vector<owned<Param>>& all() const { return m_params; }

private:
    std::vector<owned<Param>> m_params;
    std::size_t m_next = 0;
};

class Message final : public rpc::IRequest
{
public:
    /// A request.
    explicit Message(const char* name) : m_name(name) {}
    /// A reply.
    explicit Message(ec::EC code) : m_is_reply(true), m_code(code) {}

    /// Returns 0 if `size` is too small.
    std::uint32_t write(unsigned char* buffer, std::uint32_t size) override;
    /// On failure the message becomes an empty request.
    int read(const unsigned char* data, std::uint32_t size) override;
    /// Returns the largest 32-bit number if the message has 4 GiB or more.
    std::uint32_t size() override;
    void release() override { delete this; }
    const char* func_name() override { return m_name.c_str(); }
    rpc::IParams* params() override { return m_params.get(); }

    bool is_reply() const { return m_is_reply; }
    ec::EC code() const { return m_code; }
    const std::vector<owned<Param>>& all() const { return m_params->all(); }

private:
    void write(Writer& writer) const;

    bool m_is_reply = false;
    std::string m_name;
    ec::EC m_code = 0;
    owned<Params> m_params{new Params};
};

/// Returns null for anything that cannot be made, also if out of memory.
class MsgFactory final : public rpc::IMsgFactory
{
public:
    rpc::IRequest* new_request(const char* name) override;
    rpc::IRequest* new_reply(rpc::ICommand* command, ec::EC code) override;
    rpc::IParams* new_record() override;
    rpc::IParam* new_param(unsigned type, const void* value, int hand_over) override;
};

} // namespace fwbase
