// The command line of optimize_host: its options, and the calls that its words stand for.
#pragma once

#include "host/call.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

/// Words that make no sense; the text says which and why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    enum class Task { call, calls_from_input, help, version };

    Task task = Task::call;
    std::string module; ///< file to load
    bool json = false;
    std::vector<std::string> words; ///< of the call
};

/// What `--help` prints: fits a screen of 24 lines.
extern const char* const help;

/// Throws UsageError.
Options parse_options(int argc, char** argv);

/// The call that an operation's name and its arguments stand for. What an operation takes goes by
/// the first word of its name; whether it exists is the module's to say. Throws UsageError.
Call to_call(const std::vector<std::string>& words);

/// The words of a line, which blanks separate; none when it is empty or begins with '#'. Throws
/// UsageError.
std::vector<std::string> split(const std::string& line);

} // namespace host
