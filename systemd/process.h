// Other programs.
#pragma once

#include <string>

namespace systemd
{

/// What a program printed to standard output, and its exit status, 128 if it was killed.
struct Outcome {
    std::string output;
    int status;
};

/// The text as one word of a shell command.
std::string quoted(const std::string& text);

/// Runs a shell command and waits for its end. Throws std::runtime_error.
Outcome run(const std::string& command);

/// Runs systemctl, without colours and without a look at init scripts, on the units below a root
/// folder. Not for several threads.
Outcome systemctl(const std::string& root, const std::string& arguments);

/// The path of the next program of that name behind the program `self` on the search path, or of
/// the first one if `self` is not on it. Skips relative folders. Empty if there is no such program.
std::string next_program(const std::string& name, const std::string& self);

} // namespace systemd
