// What `chkconfig --list` prints on a machine that runs systemd.
#pragma once

#include "systemd/process.h"

#include <filesystem>
#include <string>

namespace systemd
{

/// The units of the machine below a root folder: a unit that is on is listed as on in the run
/// levels 2 to 5. After them, what `tool`, another chkconfig, lists, without the names of units; an
/// empty `tool` stands for none. The status is that of the tool, or 0. Throws std::exception if the
/// units cannot be listed.
Outcome list(const std::filesystem::path& root, const std::string& tool);

} // namespace systemd
