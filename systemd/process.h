// Other programs.
#pragma once

#include <string>
#include <vector>

namespace systemd
{

/// What a program printed to standard output, and its exit status: 128 or more if it was killed,
/// 127 if it could not be started.
struct Outcome {
    std::string output;
    int status;
};

/// Runs a program, which is looked up on the search path unless its name has a slash, and waits for
/// its end. Not for several threads. Throws std::runtime_error.
Outcome run(const std::vector<std::string>& words);

/// Runs systemctl with arguments, so that it prints no colours and leaves init scripts alone.
Outcome systemctl(const std::vector<std::string>& arguments);

/// The path of the next program of that name on the search path behind the program `self`, or of
/// the first if that is not on it. Relative folders are skipped. Empty if there is none.
std::string next_program(const std::string& name, const std::string& self);

} // namespace systemd
