// Text that optimize_host prints.
#pragma once

#include <cstdint>
#include <string>

namespace host
{

/// "0x" and eight digits.
std::string hexadecimal(std::uint32_t number);

} // namespace host
