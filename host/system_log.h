// Writes what was switched to the system log.
#pragma once

#include <string>

namespace host
{

/// Writes a line in UTF-8, with the user if the process belongs to a login. The facility is daemon,
/// the identity optimize_host. If the variable OPTIMIZE_HOST_LOG names a file, appends the line to
/// this file instead, for example in a test on a copy of a machine. Prints a message if that fails.
void log_line(std::string text);

} // namespace host
