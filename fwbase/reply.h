// For hosts with the reference framework: how a call has ended, and why.
#pragma once

#include "framework/fwbase.h"

#include <string>

#pragma GCC visibility push(default)

namespace fwbase
{

/// The code of the operation in a reply: 0x80000000 for success, 0 for failure. Also 0 if the block
/// holds no reply. Throws std::bad_alloc.
ec::EC reply_code(const IDataBlock& block);

/// The text of this thread's latest CLiteXmlException since the previous call; empty if there was
/// none. A module reports only that an operation failed; this is the reason. Call it before a call
/// of the module, to forget older errors, and afterwards on the same thread.
std::string take_last_xml_error();

} // namespace fwbase

#pragma GCC visibility pop
