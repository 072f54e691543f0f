// What `chkconfig --list` prints on a machine that runs systemd.
#pragma once

#include "systemd/process.h"

#include <filesystem>
#include <string>

namespace systemd
{

/// The units of the machine below a root folder, on at 2 to 5 or off at all run levels; then what
/// another `chkconfig` lists, the program `tool`, but for names of units. An empty `tool` is none.
/// The status is that of the tool, or 0. Throws std::exception if the units cannot be listed.
Outcome list(const std::filesystem::path& root, const std::string& tool);

} // namespace systemd
