// The reference host's framework objects: registry, memory manager, run log and RPC service.
#pragma once

#include "framework/fwbase.h"

namespace host
{

/// The one framework of the process. Thread-safe.
fwbase::IFWBase& framework();

/// References to the RPC service that were obtained and not given back.
int rpc_references();

} // namespace host
