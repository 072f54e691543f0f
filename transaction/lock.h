// The lock that lets one call at a time use a configuration, across threads and processes.
#pragma once

#include "framework/descriptor.h"
#include "transaction/calls.h"

#include <string>

namespace transaction
{

/// The configuration's real file, after all links, and the folder that holds it. The folder stays
/// open, so that nothing on the way to it can be replaced meanwhile.
struct Place {
    std::string path;
    fwbase::Descriptor folder;
};

/// Opens the place of a configuration. Throws CLiteXmlException if the file is missing or is not a
/// configuration, and std::runtime_error if its folder cannot be opened.
Place open_place(const std::string& configuration);

/// Holds the exclusive lock on a configuration: a lock on the empty file "conf.xml.lock" beside it.
///
/// The commands that the module starts inherit the descriptor, and the lock ends when the last copy
/// is closed. So a command that outlives a killed program keeps the lock while it changes the
/// machine. Programs that other threads start meanwhile inherit the descriptor, too.
class Lock
{
public:
    enum class Create { yes, no };

    /// Waits for the lock. Calls `say` if that takes longer than a second. If the file system
    /// cannot lock, calls `say` once per process and goes on without the lock. With Create::no,
    /// nothing is locked if there is no lock file.
    ///
    /// Throws as open_place does; nothing is created then. Throws std::runtime_error, which names
    /// the file, if the lock file is not a private regular file of this user, or cannot be locked
    /// in time. In the latter case the text also names the process that holds the lock, if that can
    /// be found out.
    Lock(const std::string& configuration, const Say& say, Create create = Create::yes,
         const Waiting& waiting = Waiting());

    const Place& place() const { return m_place; }

private:
    Place m_place;
    fwbase::Descriptor m_file;
};

} // namespace transaction
