// The history of a machine, in its system log.
#pragma once

#include <string>

namespace host
{

/// Writes a line that says that a service was switched off, or back on, in which run levels it was
/// or is on, and who did it, if the process belongs to a login. Facility daemon, identity
/// optimize_host. If the variable OPTIMIZE_HOST_LOG names a file, the line is appended there
/// instead: for a machine that is not this one. `name` is UTF-8. Complains if that fails.
void log_switch(const std::string& name, const std::string& levels, bool on);

} // namespace host
