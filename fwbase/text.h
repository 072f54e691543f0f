// Text for people: converts GBK from modules to UTF-8 that is safe to print.
#pragma once

#include <string>

namespace fwbase
{

/// Converts GBK to UTF-8. Each byte that is not valid GBK becomes U+FFFD. If the C library has no
/// GBK converter, every byte becomes U+FFFD.
std::string gbk_to_utf8(const std::string& gbk);

/// Replaces every control character of a UTF-8 text with '?', so that it cannot control a terminal.
std::string printable(std::string text);

} // namespace fwbase
