// The one entry that the module writes to the host's run log.
#pragma once

#include <cstdint>

namespace rpc
{

/// Where a reply was refused.
struct FailurePlace {
    const void* object;    ///< the interface object
    const char* member;    ///< name of the handler or reply operation
    const char* arguments; ///< its argument types, as in its declaration
    int line;              ///< line of the size check in system_option_s
};

/// Logs that a reply of `size` bytes was too large to deliver, if the host has entries of this type
/// enabled. Does nothing without memory for the text.
void log_oversized_reply(const FailurePlace& place, std::uint32_t size);

} // namespace rpc
