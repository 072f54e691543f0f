// Adding and removing the services that may be switched off.
#pragma once

#include "host/call.h"
#include "transaction/transaction.h"

namespace host
{

/// Carries out add_service or remove_service: edits the configuration under the lock. Returns what
/// became of each entry. Texts are UTF-8.
///
/// A new service gets the largest id plus one. A service that is switched off is not removed,
/// because it could not be restored any more; a mark as ignored goes with its service.
///
/// Throws Refused if the module would never switch a service of that name, or no id is free.
/// Throws CLiteXmlException if the configuration cannot be read or written, or lacks the list of
/// services, and as transaction::Lock and transaction::Record do.
std::vector<transaction::Outcome> edit_candidates(const Call& call, const transaction::Say& say,
                                                  const transaction::Waiting& waiting);

/// Whether the configuration has the list of services. Throws CLiteXmlException.
bool has_candidate_list();

} // namespace host
