// Completing a call that was interrupted.
#pragma once

#include "host/call.h"

namespace host
{

/// Completes what an interrupted optimize_service or restore_service had begun. The module lists
/// the machine on a scratch copy of the configuration, which shows what has changed since the
/// configuration was written. The services that have changed go to the operation once more:
/// repeating a command does no harm, and the configuration then records it. Services that the call
/// had not reached stay as they are.
///
/// The state of a service that is not listed is unknown. It goes to the operation, too, but may
/// fail.
///
/// Returns what was done, for people; empty if there was nothing to do. Throws std::exception if
/// the call cannot be completed. The configuration must be locked.
std::string complete(const Call& interrupted, rpc::IIfaceRealize& interface);

} // namespace host
