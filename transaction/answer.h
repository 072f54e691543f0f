// Answers the calls of remote clients.
#pragma once

#include "framework/rpc.h"
#include "transaction/calls.h"

#include <string>

namespace transaction
{

/// Answers one call of a client as the module's call_func would, but loses no run levels: calls
/// that list, switch or ignore services run through a Transaction, and set_optimize_sorce holds the
/// lock. All other calls go straight to the module.
///
/// `in`, `out` and `command` are those of call_func; `command` must not be null. The item replies
/// are sent to `command` after the result was verified and recorded and the lock given back, so
/// that a client that reads slowly does not make others wait. They come in the module's order: that
/// of the configuration in a listing, that of the request otherwise. An id is sent if a listing has
/// shown that its service was switched; `say` tells why others were not. A listing also contains
/// the services that the record keeps as switched off although chkconfig does not list them.
///
/// Returns what call_func returns, 0x840C0000 if there is a reply. A call that was refused, see
/// Transaction, is answered with the code 0 and without items; `say` tells why. The code is also 0
/// if the module reports that the operation failed; items are sent even then. Throws std::bad_alloc
/// if a message cannot be made, std::runtime_error if the framework has no RPC service, and passes
/// on what the host's framework throws; the call may have switched services then.
///
/// Makes all messages with the RPC service of IFWBase::instance(). While services are listed or
/// switched, the module is called with a command that is not the host's, and so is the factory's
/// new_reply. What the client receives is made for `command`.
///
/// `say` must not throw. `configuration` is the path of the file that the module uses:
/// "./config/system_operation/conf.xml" for Optimize_Option. Usable on any thread of a process in
/// whose working directory this path exists. Calls wait for one another. SIGCHLD must not be
/// ignored, and no other thread may wait for all children.
ec::EC answer(rpc::IIfaceRealize& module, const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
              rpc::ICommand* command, const std::string& configuration, const Say& say,
              const Waiting& waiting = Waiting());

} // namespace transaction
