// Switching a unit off and on, so that it comes back with exactly the links it had.
#pragma once

#include <filesystem>
#include <string>

namespace systemd
{

/// The unit that a name stands for: NAME, NAME.service, or NAME.socket if there is a NAME@.service.
/// Empty if there is neither a unit file of that name nor a record. Throws std::exception, also if
/// the name is an alias.
std::string find_unit(const std::filesystem::path& root, const std::string& name);

/// Removes the links of the unit, of its aliases and of the units in its Also=, and records them.
/// Does nothing if the unit is off.
///
/// This and switch_on lock the records, and first put back the links of changes that were
/// interrupted. If they throw std::exception, either the links are as they were, or a pending
/// record has the links that are still to be put back. They print notes to standard error, and make
/// systemd reload its units if the root folder is "/".
void switch_off(const std::filesystem::path& root, const std::string& unit);

/// Puts the recorded links of the unit back, or runs `systemctl enable` if none are recorded. If
/// the unit is on, only removes its record. If the unit file is gone, throws and keeps the record.
void switch_on(const std::filesystem::path& root, const std::string& unit);

} // namespace systemd
