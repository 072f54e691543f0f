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

/// The text or, if it takes more than `columns`, its beginning and "…". Blanks at the end are cut
/// off without the "…".
std::string cut(const std::string& text, std::size_t columns);

/// A word that a user has typed, for a message: at most its first 200 bytes.
std::string shortened(const std::string& word);

} // namespace host
