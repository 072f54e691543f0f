// Formats numbers for people.
#pragma once

#include <cstdint>
#include <string>

namespace host
{

/// "0x" and eight hexadecimal digits, for example "0x0000000A".
std::string hexadecimal(std::uint32_t number);

} // namespace host
