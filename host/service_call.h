// A call that lists, switches or ignores services, in a transaction.
#pragma once

#include "host/answer.h"
#include "host/call.h"

namespace host
{

/// Makes one call of the module, without a lock or a listing. If the operation fails, the answer
/// says why.
Answer call_directly(rpc::IIfaceRealize& interface, const Call& call);

/// Takes the lock, lists the machine, makes the call, verifies it, and gives the lock back. Writes
/// to the system log which services were switched. Ignores the signals of IgnoredSignals while it
/// holds the lock. Throws Refused, and as transaction::Transaction does.
Answer call_in_transaction(rpc::IIfaceRealize& interface, const Call& call,
                           const transaction::Say& say, const transaction::Waiting& waiting,
                           bool is_rehearsal);

} // namespace host
