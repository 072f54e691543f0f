#include "systemd/unit_name.h"

#include <algorithm>
#include <array>

namespace systemd
{

bool is_unit_name(const std::string& name)
{
    return name.size() <= 200 && has_suffix(name) && name.find("@.") == std::string::npos &&
           name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                  "0123456789:_.@-") == std::string::npos;
}

bool has_suffix(const std::string& name)
{
    constexpr std::array kinds = {".service", ".socket", ".timer", ".path",   ".target",   ".mount",
                                  ".swap",    ".slice",  ".scope", ".device", ".automount"};
    return std::any_of(kinds.begin(), kinds.end(),
                       [&name](const char* kind) { return ends_with(name, kind); });
}

std::string to_short(const std::string& unit)
{
    const std::string rest = unit.substr(0, unit.rfind('.'));
    return ends_with(unit, ".service") && !has_suffix(rest) ? rest : unit;
}

std::string template_of(const std::string& unit)
{
    const std::size_t at = unit.find('@');
    const std::size_t dot = unit.rfind('.');
    return at == std::string::npos || dot == std::string::npos || dot <= at + 1
               ? ""
               : unit.substr(0, at + 1) + unit.substr(dot);
}

std::string base_name(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

bool ends_with(const std::string& text, const std::string& end)
{
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace systemd
