// The system calls that tests watch. The definitions here take the place of the C library's. open()
// looks for the files of /etc/xinetd.d in the working directory, not on this machine.
#pragma once

#include <string>

namespace system_calls
{

/// If not null, "open PATH; ", "fsync PATH; ", "renameat NEW-NAME; " and "symlinkat PATH; " are
/// appended.
extern std::string* trace;

/// If not null, runs before each of the calls but open and takes its name. The call fails with the
/// error that it returns, unless that is 0.
extern int (*before)(const std::string& call);

} // namespace system_calls
