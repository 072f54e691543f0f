// The search path of commands.
#pragma once

#include <string>

namespace host
{

/// The folder with the chkconfig that switches the units of systemd, if this machine was booted
/// with systemd and the program is installed; else empty.
std::string units_folder();

/// The search path for the module's commands. `path` is the search path of the caller; null stands
/// for the default of the C library. Its entries are made absolute, because the working directory
/// changes. /usr/sbin and /sbin, which cron leaves out, are added at the end if they are missing.
/// `units`, unless empty, comes before the first folder of the system, such as /usr/bin, but behind
/// the caller's own folders in front of that.
std::string complete_search_path(const char* path, const std::string& units);

/// Throws std::runtime_error unless the shell finds a command of that name that it can execute in
/// these folders, which are separated by colons.
void require_command(const std::string& command, const std::string& search_path);

} // namespace host
