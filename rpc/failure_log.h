// The one entry that the module writes to the host's run log.
#pragma once

#include <cstdint>

namespace rpc
{

/// The place in the source where a reply turned out to be too large.
struct SourceLocation {
    const void* object;    ///< the interface object
    const char* signature; ///< handler or reply operation, as the compiler spells its signature
    int line;              ///< in system_option_s
};

/// Logs that a reply of `size` bytes is too large to deliver. Does nothing if the host has disabled
/// entries of this type, or if there is no memory for the text. Thread-safe if the host's run log
/// is.
void log_oversized_reply(const SourceLocation& location, std::uint32_t size);

} // namespace rpc
