// Formats text and numbers for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace host
{

/// "0x" and eight hexadecimal digits, for example "0x0000000A".
std::string hexadecimal(std::uint32_t number);

/// The columns that a UTF-8 text takes on a terminal, in any locale: two for each East Asian wide
/// character, none for a combining one.
std::size_t display_width(const std::string& text);

/// The text, or its beginning and "…", so that it takes no more columns than these. Blanks at its
/// end are cut without the sign.
std::string cut(const std::string& text, std::size_t columns);

/// A word of a user's for a message: at most 200 bytes of it.
std::string shortened(const std::string& word);

} // namespace host
