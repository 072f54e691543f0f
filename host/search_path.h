// The search path of commands.
#pragma once

#include <string>

namespace host
{

/// The folder with the chkconfig that switches the units of systemd, if this machine was booted
/// with systemd and the program is installed; else empty.
std::string units_folder();

/// The search path that the commands get, with absolute entries, so that they keep their meaning
/// when the working directory changes. Ends with /usr/sbin and /sbin, which cron leaves out. `path`
/// is that of the caller; null stands for the system's own. `units`, unless empty, comes before the
/// system's folders, but behind those that the caller put in front of them.
std::string complete_search_path(const char* path, const std::string& units);

/// Throws std::runtime_error unless the shell finds a command of that name that it can execute in
/// these folders, which are separated by colons.
void require_command(const std::string& command, const std::string& search_path);

} // namespace host
