// What the operations on services change: which services a call means, and why some were left out.
#pragma once

#include "host/call.h"
#include "host/configuration.h"
#include "host/printer.h"

#include <string_view>

namespace host
{

/// The change that an operation makes to the services that it is given.
struct Change {
    std::string_view operation;
    bool flag;
    State from; ///< the state in which the operation handles a service
    State to;
    const char* is_made; ///< describes a service that is in state `to` already
};

/// Null for an operation that does not change services.
const Change* change_of(const Call& call);

/// The ids of services that are given by id or name, each once. A name stands for all services of
/// that name. Throws std::runtime_error, which names it, if there is none.
std::vector<unsigned int> find_ids(const std::vector<std::string>& services,
                                   const std::vector<Entry>& entries);

/// The names of the services by id. Of several with one id, that which the operation handles.
Names names_of(const std::vector<Entry>& entries, const Change* change);

/// The reason of a service that was in the right state. The command may have failed halfway.
constexpr const char* command_failed = "command failed";

/// Describes the services that were not handled, by the entries from before the call: those that
/// were in the requested state already, and the others with the reason.
void explain(const std::vector<unsigned int>& missing, const std::vector<Entry>& entries,
             const Change& change, Ending& ending);

} // namespace host
