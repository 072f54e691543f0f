// What became of a call, before it is printed.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"
#include "transaction/transaction.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

/// A call was not made, or not carried to its end. The exit status is that of a failed operation.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Answer {
    /// The code of call_func; none if the module was not called.
    std::optional<ec::EC> result = {};
    owned<fwbase::Message> reply = nullptr;     ///< the module's final reply; null if none came
    std::vector<transaction::Reply> items = {}; ///< what the module sent, if nothing verified it
    std::vector<transaction::Service> services = {}; ///< what ls_service lists
    bool has_candidates = true;                      ///< whether any service is configured
    std::optional<transaction::Lines> record = {};   ///< what the operation `switched` prints
    /// What became of each service of a call that changes services or candidates.
    std::vector<transaction::Outcome> outcomes = {};
    std::string error = {}; ///< why the operation failed; empty if it did not
    bool is_rehearsal = false;

    /// The exit status that the answer means.
    ExitStatus status() const;
};

} // namespace host
