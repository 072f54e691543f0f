// Text for people: character sets at the border between the module's GBK and a terminal's UTF-8,
// and numbers.
#pragma once

#include <cstdint>
#include <string>

namespace host
{

/// GBK text as UTF-8. What is no GBK, or everything when the C library has no converter, becomes
/// U+FFFD, a byte at a time.
std::string gbk_to_utf8(const std::string& gbk);

/// The text with every control character replaced by '?', so that it cannot steer a terminal.
std::string printable(std::string text);

/// "0x" and eight digits.
std::string hexadecimal(std::uint32_t number);

} // namespace host
