// The system calls that tests watch. The definitions here take the place of the C library's. open()
// looks for the files of /etc/xinetd.d in the working directory, not on this machine.
#pragma once

#include <string>

namespace system_calls
{

/// If not null, each call appends its text: "open PATH; ", "fsync PATH; ", "renameat NEW-NAME; " or
/// "symlinkat PATH; ".
extern std::string* trace;

/// If not null, each call but open runs this function first, with the name of the call. If the
/// function returns an error other than 0, the call fails with it.
extern int (*before)(const std::string& call);

} // namespace system_calls
