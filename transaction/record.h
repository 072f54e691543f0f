// The file that keeps what was switched off or ignored, beside the configuration.
#pragma once

#include "transaction/line.h"
#include "transaction/lock.h"

#include <string>

namespace transaction
{

/// The file. Names are bytes as in the configuration. Not for several threads or processes at once:
/// the lock on the configuration must be held.
class Record
{
public:
    /// The record beside the configuration; borrows its place.
    explicit Record(const Place& place)
        : m_folder(place.folder.get()), m_path(place.path + ".record")
    {
    }

    /// The lines; none if there is no file. Throws std::runtime_error, which names the file and the
    /// line, unless it is a regular file of this user with one name, no link, and every line is
    /// valid and the only one of its name.
    Lines read();

    /// Replaces the file, unless it says the same already, and flushes it to the disk, so that a
    /// crash leaves the old or the new one. Throws std::runtime_error.
    void write(const Lines& lines);

private:
    int m_folder;
    std::string m_path;
    std::string m_text; // what the file held when it was last read or written
};

} // namespace transaction
