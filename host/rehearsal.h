// A copy of the configuration and the record, on which a call runs that must not change anything.
#pragma once

#include "host/scratch_folder.h"
#include "transaction/lock.h"

#include <memory>

namespace host
{

/// While it lives, the working directory is a scratch folder that holds the copy. The configuration
/// is locked if its lock file is there already; if not, none is created.
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
