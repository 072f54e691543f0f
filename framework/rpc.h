// The host framework's RPC library: messages and their parameters, commands, and the interface that
// a module implements.
//
// The order of the virtual operations is a binary contract: append only. Give objects back with
// release(); never delete them.
#pragma once

#include "framework/ec.h"
#include "framework/ex_std.h"
#include "framework/fwbase.h"

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

namespace rpc
{

/// The integer type of RPC interfaces: unsigned, 32 bits, despite its name.
using int32 = std::uint32_t;

/// Type tags of parameters. Beside each tag is the type of the value object that is passed to
/// IMsgFactory::new_param. IParam::value() returns the address of that object for T_BOOL and
/// T_UINT32, and the address of a pointer to it for the other types.
enum ParamType : unsigned {
    T_BOOL = 1,        ///< one byte: 0 is false, any other value true
    T_UINT32 = 7,      ///< rpc::int32
    T_UINT32_LIST = 8, ///< std::vector<unsigned int>
    T_STRING = 13,     ///< std::string
    T_RECORD_LIST = 16 ///< std::vector<rpc::IParams*>, one container per record
};

/// One parameter of a message.
class IParam
{
public:
    /// The value storage (see ParamType); valid as long as the parameter.
    virtual const void* value() const = 0;
    /// The parameter's ParamType. A module asks for it before it reads a value, unless
    /// it takes values of any type.
    virtual unsigned type() const = 0;
    virtual void release() = 0;

protected:
    ~IParam() = default;
};

/// An ordered list of parameters: the parameters of a message or the fields of a record.
class IParams
{
public:
    /// Appends a parameter. Always takes ownership of it, even if it throws.
    virtual void add(IParam* param) = 0;
    /// Sets `param` to the next parameter, starting with the first. Leaves `param` unchanged if
    /// none is left. The list keeps ownership.
    virtual void next(IParam*& param) = 0;
    /// Gives back a list from IMsgFactory::new_record that no parameter owns. Not for the list of a
    /// message, which the message owns.
    virtual void release() = 0;

protected:
    ~IParams() = default;
};

/// A message: a request or a reply.
class IRequest
{
public:
    /// Serialises the message into a buffer of `size` bytes. Returns the number of bytes written.
    virtual std::uint32_t write(unsigned char* buffer, std::uint32_t size) = 0;
    /// Reads the message from `size` bytes. Returns 0 if they are not a valid message.
    virtual int read(const unsigned char* data, std::uint32_t size) = 0;
    /// The serialised length in bytes.
    virtual std::uint32_t size() = 0;
    virtual void release() = 0;
    /// The name of the called operation; valid until the next read() or release().
    virtual const char* func_name() = 0;
    /// The parameters, which the message owns.
    virtual IParams* params() = 0;

protected:
    ~IRequest() = default;
};

/// A call that the host has received. The host owns it.
class ICommand
{
public:
    /// Sends a reply before the call has ended. `code` is the success code that
    /// IMemManager::new_block returned for the block; the operation's code is in the message.
    /// Always takes ownership of the block, which is never null, even on failure.
    virtual ec::EC reply(ec::EC code, fwbase::IDataBlock* block) = 0;

protected:
    ~ICommand() = default;
};

/// Makes messages and their parts. The caller owns every result. A null result means that the
/// object could not be made. Thread-safe.
class IMsgFactory
{
public:
    /// A request for the operation `name`, or with an empty name a message to be filled by read().
    virtual IRequest* new_request(const char* name) = 0;
    /// A reply to `command`, which is the pointer that the host gave to call_func, that carries
    /// `code`.
    virtual IRequest* new_reply(ICommand* command, ec::EC code) = 0;
    /// An empty container for the fields of one record.
    virtual IParams* new_record() = 0;
    /// A parameter of the given ParamType. With `hand_over` 1 it takes ownership of the value
    /// object, which must have been made with new. With 0 it borrows the object, which must stay
    /// alive until the message has been serialised. A T_RECORD_LIST always takes ownership of the
    /// containers and copies the pointers to them at once: the vector may be destroyed before it
    /// releases them. `hand_over` applies to the vector only. On failure, ownership stays with the
    /// caller.
    virtual IParam* new_param(unsigned type, const void* value, int hand_over) = 0;

protected:
    ~IMsgFactory() = default;
};

/// The host's RPC service, registered as "obj.fws.rpc".
class IRpcService
{
public:
    /// The message factory; borrowed, valid until release().
    virtual IMsgFactory* msg_factory() = 0;
    /// Gives back one reference.
    virtual void release() = 0;

protected:
    ~IRpcService() = default;
};

/// An RPC interface that a module implements. The host calls init, then the three operations below
/// in any order, any number of times and on any threads, then release. init and release must not
/// overlap with each other or with any other operation.
class IIfaceRealize : public fwbase::IMM::IBase
{
public:
    /// Attributes of the interface. `desc` is GBK.
    struct IAtt {
        std::string name;
        std::string id;
        std::string desc;
        std::string extra;
    };

    /// Attributes of one operation.
    struct FAtt {
        std::string name;
        std::string extra;
    };

    /// Borrowed; valid as long as the object. Filled by init.
    virtual const IAtt* iatt() const = 0;
    /// Replaces the contents of `list` with the attributes of the operations. They are borrowed
    /// from the object and valid until release.
    virtual ec::EC fatts(ex_std::vector<const FAtt*>& list) const = 0;
    /// Runs one call. `in` is a call block: two bytes for the host's use, one byte with the length
    /// L of an extension, one byte for the host's use, L bytes of extension, then the request
    /// message. On success sets `out` to the reply, which the caller owns. Replies that the
    /// operation sends while it runs go to `command`, which may be null for an operation that sends
    /// none.
    virtual ec::EC call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
                             ICommand* command) = 0;
};

} // namespace rpc

#pragma GCC visibility pop
