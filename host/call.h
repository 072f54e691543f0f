// One call of a module: encodes typed arguments and decodes the replies.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"
#include "transaction/transaction.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace host
{

/// Arguments of an operation, in the order in which they are sent. Unset ones are not sent.
struct Arguments {
    std::optional<bool> flag;
    std::optional<rpc::int32> value;
    std::optional<std::vector<unsigned int>> ids;
};

struct Call {
    std::string operation;
    Arguments arguments;
    /// Services by id or name, if one of them is a name; empty if all are ids. The call replaces
    /// them by ids.
    std::vector<std::string> services = {};
    bool is_for_all = false;      ///< for all services that are switched off, instead of `services`
    std::string description = {}; ///< of a new candidate; UTF-8
};

/// Encodes a call as a block with an empty header extension. Throws std::bad_alloc.
owned<fwbase::IDataBlock> make_call_block(const Call& call);

/// Makes an encoded call of the module. Passes each reply that the operation sends while it runs to
/// `on_item`, and returns the final reply, or null if there is none. `result` receives the code of
/// call_func.
owned<fwbase::Message> call_module(rpc::IIfaceRealize& interface, const fwbase::IDataBlock& block,
                                   const std::function<void(const fwbase::Message&)>& on_item,
                                   ec::EC& result);

/// Appends what a reply lists: services, or only the ids of services.
void add_replies(const fwbase::Message& message, std::vector<transaction::Reply>& replies);

} // namespace host
