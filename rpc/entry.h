// The entry function of the module. A host looks it up by name with dlsym and calls it through a
// pointer of the type decltype(rpc_ireal_Optimize_Option)*.
#pragma once

#include "framework/rpc.h"

/// The module's one exported function. Returns the one interface object, which lives until the
/// module is unloaded. May be called any number of times, on any thread.
extern "C" [[gnu::visibility("default")]] rpc::IIfaceRealize* rpc_ireal_Optimize_Option();
