// Runs the calls of the command line, one after the other.
#pragma once

#include "host/printer.h"

namespace host
{

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

/// Runs one call, an operation with its arguments, and prints its answer. A call that changes the
/// machine or the configuration waits for those of other processes, completes what an interrupted
/// one had begun, and cannot be interrupted by HUP, INT, QUIT or TERM. `origin` says where the call
/// was read and precedes every message. Throws UsageError if the words are not a call.
ExitStatus run(const std::vector<std::string>& words, const std::string& origin,
               rpc::IIfaceRealize& interface, Printer& printer);

} // namespace host
