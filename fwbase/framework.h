// The reference framework: object registry, memory manager, run log and RPC service.
#pragma once

#include "framework/fwbase.h"

namespace fwbase
{

/// The one reference framework of the process, which lives until the process ends. Thread-safe.
/// IFWBase::instance() returns it unless the program that links these objects defines its own.
IFWBase& reference_framework();

} // namespace fwbase
