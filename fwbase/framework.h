// The reference framework: object registry, memory manager, run log and RPC service.
#pragma once

#include "framework/fwbase.h"

namespace fwbase
{

/// The reference framework of the process, which lives until the process ends. Thread-safe.
/// IFWBase::instance() returns it unless the linking program defines its own instance().
IFWBase& reference_framework();

} // namespace fwbase
