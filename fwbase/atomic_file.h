// Whole files: reading one, and replacing one so that a crash at any moment leaves the old bytes or
// the new ones.
//
// Every failure is a CLiteXmlException that names the path as it was given. Safe to use from
// several threads and processes at once, also on one file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fwbase
{

/// The most bytes that a file may have, to be read and to be written.
constexpr std::size_t max_file_size = std::size_t{16} << 20U;

/// The bytes of a regular file. Anything else is refused without waiting for it, a pipe too.
std::string read_file(const char* path);

/// Replaces a regular file, which keeps its mode and owner and must be writable, or makes a new
/// one. A link is followed. On failure the old file is whole and no temporary file is left; the one
/// exception is a folder that cannot be flushed after the exchange, where the new file stands.
void replace_file(const char* path, std::string_view bytes);

} // namespace fwbase
