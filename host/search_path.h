// The search path of commands.
#pragma once

#include <string>

namespace host
{

/// Whether the shell finds a command of that name that it can execute.
bool is_on_search_path(const std::string& command);

/// Makes the relative entries of PATH absolute, so that they keep their meaning when the working
/// directory changes. Not for several threads. Throws std::exception.
void make_search_path_absolute();

} // namespace host
