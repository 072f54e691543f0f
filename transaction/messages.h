// The messages of calls on services, made and read with the host's framework.
#pragma once

#include "framework/owned.h"
#include "framework/rpc.h"
#include "transaction/calls.h"
#include "transaction/transaction.h"

#include <string>
#include <vector>

namespace transaction
{

/// What a client asks for.
struct Request {
    std::string operation; ///< empty if the block holds no request
    /// Whether the operation lists, switches or ignores services and the block holds all its
    /// parameters. The module refuses a call that lacks one.
    bool is_on_services = false;
    bool flag = false;
    Ids ids = {};
};

Request read_request(rpc::IMsgFactory& factory, const fwbase::IDataBlock& block);

/// The call block of an operation on services. Throws std::bad_alloc.
owned<fwbase::IDataBlock> make_call_block(rpc::IMsgFactory& factory, const std::string& operation,
                                          bool flag, const Ids& ids);

/// Appends the services that a reply of the module lists. Returns false if the reply has no valid
/// list, which means that the operation has failed.
bool read_reply(rpc::IMsgFactory& factory, const fwbase::IDataBlock& block,
                std::vector<Reply>& replies);

/// A block, and the code that the memory manager returned for it.
struct ReplyBlock {
    ec::EC code;
    owned<fwbase::IDataBlock> block; ///< null if the reply is too large to be delivered
};

/// Makes the replies to one command. Every operation throws std::bad_alloc.
class ReplyMaker
{
public:
    /// Borrows both.
    ReplyMaker(rpc::IMsgFactory& factory, rpc::ICommand* command)
        : m_factory(factory), m_command(command)
    {
    }

    /// A reply that lists ids.
    ReplyBlock ids(const Ids& ids) const;
    /// A reply that lists one service, or has an empty list if `service` is null.
    ReplyBlock service(const Service* service) const;
    /// The reply of an operation that failed.
    ReplyBlock failure() const;

private:
    ReplyBlock encode(ec::EC code, owned<rpc::IParam> list) const;

    rpc::IMsgFactory& m_factory;
    rpc::ICommand* m_command;
};

} // namespace transaction
