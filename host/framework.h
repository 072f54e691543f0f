// The reference host's framework objects: registry, memory manager, run log and RPC service.
#pragma once

#include "framework/fwbase.h"

#include <string>

namespace host
{

/// The one framework of the process. Thread-safe.
fwbase::IFWBase& framework();

/// The folder, with a slash at its end, of the library that this code is part of.
std::string library_folder();

/// References to the RPC service that were obtained and not given back.
int rpc_references();

} // namespace host
