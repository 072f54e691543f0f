// A copy of the configuration and the record on which a call can be foretold.
#pragma once

#include "host/scratch_folder.h"
#include "transaction/lock.h"

#include <memory>

namespace host
{

/// While it lives, the working directory is a scratch folder that holds the copy, and the
/// configuration is locked, if it has a lock file already: nothing is created beside it.
class Rehearsal
{
public:
    /// Throws std::runtime_error or CLiteXmlException.
    Rehearsal(const transaction::Say& say, const transaction::Waiting& waiting);

private:
    transaction::Lock m_lock;
    std::unique_ptr<ScratchFolder> m_folder;
};

} // namespace host
