#include "host/text.h"

#include <cinttypes>
#include <cstdio>

namespace host
{

namespace
{

/// Characters that do not take one column.
struct Range {
    char32_t first;
    char32_t last;
    unsigned width;
};

constexpr Range ranges[] = {
    {0x0300, 0x036F, 0},   {0x1100, 0x115F, 2},   {0x200B, 0x200F, 0},  {0x20D0, 0x20F0, 0},
    {0x2E80, 0x303E, 2},   {0x3041, 0xA4CF, 2},   {0xA960, 0xA97C, 2},  {0xAC00, 0xD7A3, 2},
    {0xF900, 0xFAFF, 2},   {0xFE00, 0xFE0F, 0},   {0xFE10, 0xFE19, 2},  {0xFE20, 0xFE2F, 0},
    {0xFE30, 0xFE6F, 2},   {0xFF01, 0xFF60, 2},   {0xFFE0, 0xFFE6, 2},  {0x1F300, 0x1F64F, 2},
    {0x1F680, 0x1F6FF, 2}, {0x1F900, 0x1F9FF, 2}, {0x20000, 0x3FFFD, 2}};

unsigned width_of(char32_t character)
{
    for (const Range& range : ranges) {
        if (character >= range.first && character <= range.last) {
            return range.width;
        }
    }
    return 1;
}

/// The character of a UTF-8 text at this position, which moves to the next one.
char32_t next_character(const std::string& text, std::size_t& at)
{
    const auto lead = static_cast<unsigned char>(text[at++]);
    // The lead byte has as many ones in front as the character has bytes.
    char32_t character = lead < 0xC0 ? lead : lead < 0xE0 ? lead & 0x1F : lead & 0x0F;
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) {
        character = character << 6 | (static_cast<unsigned char>(text[at++]) & 0x3F);
    }
    return character;
}

} // namespace

std::string hexadecimal(std::uint32_t number)
{
    char text[11];
    std::snprintf(text, sizeof text, "0x%08" PRIX32, number);
    return text;
}

std::size_t display_width(const std::string& text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        width += width_of(next_character(text, at));
    }
    return width;
}

std::string cut(const std::string& text, std::size_t columns)
{
    if (display_width(text) <= columns) {
        return text;
    }
    const std::string bare = text.substr(0, text.find_last_not_of(' ') + 1); // npos + 1 is 0
    const std::size_t used = display_width(bare);
    if (used <= columns) {
        return bare + std::string(columns - used, ' ');
    }
    std::size_t width = 1; // of the "…" at the end
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size();) {
        width += width_of(next_character(text, at));
        if (width > columns) {
            break;
        }
        end = at;
    }
    return text.substr(0, end) + (columns == 0 ? "" : "…");
}

std::string shortened(const std::string& word)
{
    constexpr std::size_t most = 200;
    std::size_t end = 0;
    for (std::size_t at = 0; at < word.size();) {
        next_character(word, at);
        if (at > most) {
            return word.substr(0, end) + "...";
        }
        end = at;
    }
    return word;
}

} // namespace host
