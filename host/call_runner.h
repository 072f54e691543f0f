// Runs the calls of the command line, one after the other.
#pragma once

#include "host/call.h"
#include "host/printer.h"

namespace host
{

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

/// Runs one call and prints its answer. A call that changes the machine or the configuration waits
/// for those of other processes, completes what an interrupted one had begun, and cannot be
/// interrupted by HUP, INT, QUIT or TERM. `origin` says where the call was read and precedes every
/// message.
ExitStatus run(const Call& call, const std::string& origin, rpc::IIfaceRealize& interface,
               Printer& printer);

} // namespace host
