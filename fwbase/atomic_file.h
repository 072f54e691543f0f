// Reading a whole file, and replacing it so that a crash at any moment leaves the old bytes or the
// new ones.
#pragma once

#include "framework/descriptor.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace fwbase
{

/// The largest file that is read or written, in bytes.
constexpr std::size_t max_file_size = std::size_t{16} << 20U;

/// A file that is loaded, changed in memory and saved.
///
/// Paths are NUL-terminated, never null; symbolic links are followed. Every failure is a
/// CLiteXmlException that names the path as it was given, or std::bad_alloc. An object belongs to
/// one thread at a time. Several objects, also of other processes, may use one file at once.
class AtomicFile
{
public:
    /// Returns the bytes of a regular file. Anything else is refused at once, a pipe too. The file
    /// stays open, so that save can tell whether it is still the same one. After a failure no file
    /// is loaded.
    std::string load(const char* path);

    /// Replaces a regular file, or creates it.
    ///
    /// At the path that was given to load, the file must still be the loaded one, unchanged; else
    /// the save fails with "changed meanwhile". After a save to that path, the new file is the
    /// loaded one. A file at another path, or at the same one spelled differently, is not checked.
    ///
    /// A program that writes to the file, or replaces it, between this check and the rename that
    /// follows is not noticed, and its change is lost. Programs that must not lose changes have to
    /// agree on a lock and hold it from load to save.
    ///
    /// The new file keeps the owner, the group, the mode and the access list of the old one; if it
    /// cannot, the save fails. Other extended attributes are kept where the user may set them,
    /// except those that sign the old content (security.ima, security.evm). Until the new file has
    /// all of this, nobody but its owner can open it.
    ///
    /// On failure the old file is untouched and no temporary file is left. There is one exception:
    /// if the folder cannot be flushed at the end, the new file is already in place. A process that
    /// is killed leaves at most one temporary file, ".NAME.tmp" or ".NAME.part", which the next
    /// save removes.
    void save(const char* path, std::string_view bytes);

private:
    std::string m_path;
    Descriptor m_file;
    struct stat m_status = {};
};

} // namespace fwbase
