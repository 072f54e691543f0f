// The host framework's RPC library: messages and their parameters, commands, and the interface that
// a module realises.
//
// The order of the virtual operations is a binary contract: operations are only ever appended.
// Objects are given back with their release(), never deleted.
#pragma once

#include "framework/ec.h"
#include "framework/ex_std.h"
#include "framework/fwbase.h"

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

namespace rpc
{

/// The integer type of RPC interfaces: unsigned, 32 bits.
using int32 = std::uint32_t;

/// Type tags of parameters. The second column is the value object that IMsgFactory::new_param takes
/// a pointer to; IParam::value() of the first two points at that object, of the others at a pointer
/// to it.
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
    /// The value storage (see ParamType), valid as long as the parameter.
    virtual const void* value() const = 0;
    /// The parameter's ParamType.
    virtual unsigned type() const = 0;
    virtual void release() = 0;

protected:
    ~IParam() = default;
};

/// An ordered list of parameters: those of a message, or the fields of one record.
class IParams
{
public:
    /// Appends a parameter and takes it over, also when it throws.
    virtual void add(IParam* param) = 0;
    /// Puts the next parameter into `param`, beginning with the first; leaves `param` as it is when
    /// none is left. The parameter stays the list's.
    virtual void next(IParam*& param) = 0;
    /// Gives back a list that IMsgFactory::new_record made and that no parameter has taken over.
    /// The list of a message goes with its message.
    virtual void release() = 0;

protected:
    ~IParams() = default;
};

/// A message: a request or a reply.
class IRequest
{
public:
    /// Serialises the message into `size` bytes at `buffer`; returns the number of bytes written.
    virtual std::uint32_t write(unsigned char* buffer, std::uint32_t size) = 0;
    /// Reads the message from `size` bytes; returns zero when they are not a message.
    virtual int read(const unsigned char* data, std::uint32_t size) = 0;
    /// Serialised length in bytes.
    virtual std::uint32_t size() = 0;
    virtual void release() = 0;
    /// Name of the called operation; valid until the next read() or release().
    virtual const char* func_name() = 0;
    /// The message's parameters; they stay the message's.
    virtual IParams* params() = 0;

protected:
    ~IRequest() = default;
};

/// One call that the host has received. The host owns it.
class ICommand
{
public:
    /// Sends a reply before the call has ended and takes the block over, whatever it returns.
    virtual ec::EC reply(ec::EC code, fwbase::IDataBlock* block) = 0;

protected:
    ~ICommand() = default;
};

/// Makes messages and their parts. Every result is the caller's; null means that it could not be
/// made. Safe to use from several threads.
class IMsgFactory
{
public:
    /// A request for the operation `name`; an empty name makes a message to read().
    virtual IRequest* new_request(const char* name) = 0;
    /// A reply to `command` that carries `code`.
    virtual IRequest* new_reply(ICommand* command, ec::EC code) = 0;
    /// An empty container for the fields of one record.
    virtual IParams* new_record() = 0;
    /// A parameter of the given ParamType. With `hand_over` 1 it takes the value object over (one
    /// made with new) and frees it with itself; with 0 it borrows the object, which must stay alive
    /// until the message has been serialised. A T_RECORD_LIST takes the containers over either way:
    /// the flag speaks of the vector. When no parameter is made, nothing is taken over.
    virtual IParam* new_param(unsigned type, const void* value, int hand_over) = 0;

protected:
    ~IMsgFactory() = default;
};

/// The host's RPC service, registered as "obj.fws.rpc".
class IRpcService
{
public:
    /// The factory of all messages; borrowed, valid until release().
    virtual IMsgFactory* msg_factory() = 0;
    /// Gives one reference back.
    virtual void release() = 0;

protected:
    ~IRpcService() = default;
};

/// An RPC interface as a module realises it. The host calls init, then any of the three operations
/// below in any order and number, on several threads if it likes, then release. init and release
/// must overlap with nothing.
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

    /// Borrowed; valid as long as the object.
    virtual const IAtt* iatt() const = 0;
    /// Replaces the contents of `list` by the operations' attributes, which stay the object's and
    /// are valid until release.
    virtual ec::EC fatts(ex_std::vector<const FAtt*>& list) const = 0;
    /// Runs one call. `in` is a call block: two bytes of the host's, one byte that gives the length
    /// L of an extension, one byte of the host's, L bytes of extension, then the request message.
    /// On success `out` is the reply, which the caller owns. Replies that the operation sends while
    /// it runs go through `command`.
    virtual ec::EC call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
                             ICommand* command) = 0;
};

} // namespace rpc

#pragma GCC visibility pop
