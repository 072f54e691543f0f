// The command line of optimize_host: its options and calls.
#pragma once

#include "host/call.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

/// Wrong usage; the text names the word and the reason.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    enum class Task { call, calls_from_input, help, version };

    Task task = Task::call;
    std::string module;                   ///< file to load
    std::optional<std::string> directory; ///< folder to work in
    std::optional<unsigned int> wait;     ///< longest wait for the lock, in seconds
    bool json = false;
    bool uses_units = true;         ///< switch the units of systemd, too, where systemd runs
    bool is_full = false;           ///< do not cut the rows of a table
    bool is_rehearsal = false;      ///< only say what would be changed
    std::vector<std::string> words; ///< the operation and its arguments
};

/// The folder with the configuration of an installation; absolute.
extern const char* const installed_directory;

/// Output of `--help`.
std::string help();

/// Reads the command line. Throws UsageError, but only after all options were read: how the error
/// is printed depends on `json`.
void parse_options(int argc, char** argv, Options& options);

/// Whether a word that stands for a service is its id: it has digits only. Otherwise it is a name.
bool is_id(const std::string& word);

/// The number in a text. Throws UsageError, whose text begins with `subject`, if it is not a number
/// from 0 to 4294967295.
rpc::int32 to_number(const std::string& text, const char* subject = "");

/// Makes a call from an operation's name and its arguments, as the table of operations describes
/// them. Throws UsageError, whose text names the operation and its arguments.
Call to_call(std::vector<std::string> words);

/// Splits a line at white space. Returns no words for a blank line or a comment ('#'). Throws
/// UsageError.
std::vector<std::string> split(const std::string& line);

} // namespace host
