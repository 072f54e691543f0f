// Services by name.
#pragma once

#include "transaction/transaction.h"

#include <string>
#include <vector>

namespace host
{

/// For people: what to do about a service that is not configured, and was on in `levels`.
std::string how_to_restore(const std::string& name, const std::string& levels);

/// The ids of services that are given by id or name, in the order given. A name stands for all
/// entries of that name. Throws std::runtime_error, whose text is for people, if a name is not
/// configured, or if an id of its entries belongs to another name, too. The text gives the run
/// levels of a service that was switched off and is not configured any more.
std::vector<unsigned int> find_ids(const std::vector<std::string>& services,
                                   const transaction::Transaction& transaction);

} // namespace host
