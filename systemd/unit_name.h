// Names of units.
#pragma once

#include <string>

namespace systemd
{

/// Whether this program handles a unit of that name: it consists of A-Z a-z 0-9 : _ . @ - and ends
/// with the suffix of a kind of unit, has at most 200 bytes, and is no template.
bool is_unit_name(const std::string& name);

/// Whether the name ends with the suffix of a kind of unit.
bool has_suffix(const std::string& name);

/// The name that people use: without ".service", unless the rest ends like a name of a unit, too.
std::string to_short(const std::string& unit);

/// The name of the template, "getty@.service" for "getty@tty1.service". Empty if the unit is no
/// instance.
std::string template_of(const std::string& unit);

/// The part behind the last slash.
std::string base_name(const std::string& path);

/// Whether the text ends with `end` and has more in front of it.
bool ends_with(const std::string& text, const std::string& end);

} // namespace systemd
