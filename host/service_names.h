// Services by name.
#pragma once

#include "transaction/transaction.h"

#include <set>
#include <string>
#include <vector>

namespace host
{

std::set<std::string> names_of(const std::vector<transaction::Entry>& entries);

/// For people: what to do about a recorded service that is not configured.
std::string how_to_restore(const std::string& name, const transaction::Line& line);

/// The ids of services that are given by id or name, in the order given. A name stands for all
/// entries of that name. Throws std::runtime_error, whose text is for people, if a name is not
/// configured, or if an id of its entries belongs to another name, too. The text gives the run
/// levels of a service that was switched off and is not configured any more.
std::vector<unsigned int> find_ids(const std::vector<std::string>& services,
                                   const transaction::Transaction& transaction);

} // namespace host
