// Result codes of the host framework.
#pragma once

#include "framework/binary_contract.h"

#include <cstdint>

namespace ec
{

/// Result code. Bit 31 is set for success and clear for failure. The other bits identify the
/// result.
using EC = std::uint32_t;

constexpr bool succeeded(EC code) noexcept
{
    return (code & 0x80000000U) != 0;
}

} // namespace ec
