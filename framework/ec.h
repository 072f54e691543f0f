// Result codes of the host framework.
#pragma once

#include <cstdint>

namespace ec
{

/// Result code. Bit 31 set means success, bit 31 clear means failure; the other bits say what
/// happened.
using EC = std::uint32_t;

constexpr bool succeeded(EC code) noexcept
{
    return (code & 0x80000000U) != 0;
}

} // namespace ec
