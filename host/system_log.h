// The history of a machine, in its system log.
#pragma once

#include <string>

namespace host
{

/// Writes a line in UTF-8, and who did it if the process belongs to a login. Facility daemon,
/// identity optimize_host. If the variable OPTIMIZE_HOST_LOG names a file, the line is appended
/// there instead, for a machine that is not this one; complains if that fails.
void log_line(std::string text);

} // namespace host
