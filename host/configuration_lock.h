// The lock that lets one call at a time change a configuration, across processes.
#pragma once

#include "framework/descriptor.h"

#include <string>

namespace host
{

/// Holds the exclusive lock on the configuration: a lock on the file "conf.xml.lock" beside it.
///
/// The commands that the module starts inherit the descriptor, and the lock ends when the last copy
/// is closed: a command that outlives a killed program still changes the machine.
class ConfigurationLock
{
public:
    /// Waits for the lock. Prints one line if that takes longer than a second, and one per process
    /// if the file system cannot lock; `subject`, the origin of the call, begins each. Throws
    /// ConfigurationError if the configuration cannot be read, before it creates or opens a file
    /// beside it, and std::runtime_error if the lock file is not a private regular file of this
    /// user. Both name the file.
    explicit ConfigurationLock(const std::string& subject);

    /// The open lock file. It also holds the journal.
    int file() const { return m_file.get(); }
    /// Absolute path of the lock file.
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    fwbase::Descriptor m_file;
};

} // namespace host
