// Files beside the configuration that only its user may have made.
#pragma once

#include "framework/descriptor.h"

#include <cstddef>
#include <string>

namespace transaction
{

/// Throws std::runtime_error with the subject and the reason in errno.
[[noreturn]] void fail(const std::string& subject);

/// An open regular file of this user. Refuses links, which may lead to any file; files of other
/// users, who could change or lock them; and files with a second name, which may hold other data.
class PrivateFile
{
public:
    PrivateFile() = default;
    /// Opens the file in an open folder with these flags of open(). `path` is its name for
    /// messages, and ends with its name in the folder. Throws std::runtime_error if it is not a
    /// private file, or cannot be opened for another reason than the two that operator bool gives.
    PrivateFile(int folder, const std::string& path, int flags);

    /// False if the file was missing, or was there already when it was to be created.
    explicit operator bool() const { return m_file.is_open(); }
    int number() const { return m_file.get(); }

    /// All bytes of the file. Throws std::runtime_error if there are more than `most`, or they
    /// cannot be read.
    std::string read(std::size_t most) const;

private:
    std::string m_path;
    fwbase::Descriptor m_file;
};

/// Replaces a file in an open folder by one with this text, or creates it, and flushes it and the
/// folder to the disk. A file ".NAME.tmp" that a crash has left over is removed. Throws
/// std::runtime_error. `path` as above.
void replace_file(int folder, const std::string& path, const std::string& text);

/// Flushes a folder, so that new names survive a power failure. Returns false, with the reason in
/// errno, if that failed.
bool flush_folder(int folder);

} // namespace transaction
