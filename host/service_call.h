// A call that lists, switches or ignores services, in a transaction.
#pragma once

#include "host/answer.h"
#include "host/call.h"

namespace host
{

/// Makes one call of the module, with nothing around it. Passes the replies that arrive before the
/// final one to `items`. If the operation fails, the answer says why.
Answer call_directly(rpc::IIfaceRealize& interface, const Call& call,
                     std::vector<transaction::Reply>& items);

/// Takes the lock, lists the machine, makes the call, verifies it, and gives the lock back. Logs
/// the services that were switched. Nothing can interrupt it from the lock on. Throws Refused, and
/// as transaction::Transaction does.
Answer call_in_transaction(rpc::IIfaceRealize& interface, const Call& call,
                           const transaction::Say& say, const transaction::Waiting& waiting,
                           bool is_rehearsal);

} // namespace host
