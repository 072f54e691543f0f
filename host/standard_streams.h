// Standard input, output and error of the program, which it shares with the module and its
// commands.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace host
{

constexpr const char* input_name = "standard input";
constexpr const char* output_name = "standard output";

/// Standard output cannot be written, or nobody reads it any more: further calls make no sense.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Prints one line to standard error, with control characters replaced.
void complain(const std::string& text);

/// Throws std::runtime_error with the text "SUBJECT: " and the meaning of errno.
[[noreturn]] void fail(const std::string& subject);

/// Redirects standard output to standard error, because the module and its commands print to it.
/// Returns the original stream, to which the replies are printed. Throws std::runtime_error.
File take_standard_output();

/// Redirects standard input from /dev/null, so that a command that reads its input does not consume
/// the calls. Returns the original stream, from which the calls are read. Throws
/// std::runtime_error.
File take_standard_input();

/// If stderr is closed, opens /dev/null there, so that no file opened later becomes descriptor 2.
/// Throws std::runtime_error.
void open_standard_error();

/// Flushes standard output; throws OutputError if any of it could not be written.
void require_written(std::FILE* out);

/// Throws OutputError if nobody can read standard output any more: its pipe or socket was closed at
/// the other end, or its terminal hung up.
void require_reader(std::FILE* out);

/// The width of a terminal; none if the file is not a terminal or its width is unknown.
std::optional<std::size_t> columns_of(std::FILE* out);

/// Whether the output is to be coloured.
bool is_colored(std::FILE* out);

} // namespace host
