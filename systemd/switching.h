// Switching a unit off and on, so that it comes back with exactly the links it had.
#pragma once

#include <filesystem>
#include <string>

namespace systemd
{

/// The unit that a name stands for: NAME, NAME.service, or NAME.socket if there is a NAME@.service.
/// Empty if there is no such unit file and no record of one. Throws std::exception, also if the
/// name is an alias.
std::string find_unit(const std::filesystem::path& root, const std::string& name);

/// Removes the links that enable the unit and those that belong to them, and records them. Does
/// nothing if the unit is off.
///
/// This and switch_on lock the records, and first put back the links of changes that were
/// interrupted. If they throw std::exception, the links are as before, or a pending record says
/// which ones are still to be put back. They print notes to standard error. systemd is told if the
/// root folder is "/".
void switch_off(const std::filesystem::path& root, const std::string& unit);

/// Puts the recorded links of the unit back. Without any, runs `systemctl enable`. Does nothing but
/// drop the record if the unit is on. Throws and keeps the record if the unit file is gone.
void switch_on(const std::filesystem::path& root, const std::string& unit);

} // namespace systemd
