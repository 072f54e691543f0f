#include "host/text.h"

#include <cinttypes>
#include <cstdio>

namespace host
{

std::string hexadecimal(std::uint32_t number)
{
    char text[11];
    std::snprintf(text, sizeof text, "0x%08" PRIX32, number);
    return text;
}

} // namespace host
