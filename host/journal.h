// The journal: which services a call is about to switch, written down before it switches them.
#pragma once

#include "host/call.h"
#include "host/configuration_lock.h"

namespace host
{

/// The text of the lock file, e.g. "optimize_service 1 2\nend\n". It stays when a call is killed or
/// fails, so that the next call can complete it.
class Journal
{
public:
    /// Borrows the lock, which must be held.
    explicit Journal(const ConfigurationLock& lock) : m_lock(lock) {}

    /// The call that has not been completed, if there is one. The start of a journal is
    /// ignored: the program died while writing it, before it switched anything. Throws
    /// std::runtime_error if the file cannot be read or holds something else.
    std::optional<Call> read() const;

    /// Replaces the journal and flushes it to the disk. Throws std::runtime_error.
    void write(const Call& call) const;

    /// Empties the journal. A failure is harmless: the services of a completed call are not in the
    /// state in which it found them, so there is nothing left to complete.
    void clear() const noexcept;

private:
    const ConfigurationLock& m_lock;
};

} // namespace host
