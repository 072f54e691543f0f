// One call of a module: encodes typed arguments and decodes the replies.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"

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
    /// Services by id or name, if one of them is a name. They become the ids before the call.
    std::vector<std::string> services = {};
};

/// Encodes a call as a block with an empty header extension. Throws std::bad_alloc.
owned<fwbase::IDataBlock> make_call_block(const Call& call);

/// Runs an encoded call. Passes each reply that the operation sends while it runs to `on_item`, and
/// returns the final reply, or null if there is none. `result` receives the code of call_func.
owned<fwbase::Message> run_call(rpc::IIfaceRealize& interface, const fwbase::IDataBlock& block,
                                const std::function<void(const fwbase::Message&)>& on_item,
                                ec::EC& result);

/// Runs a call and returns the ids that it handled. Throws std::runtime_error, whose text names the
/// operation and the reason, if it fails.
std::vector<unsigned int> run_silently(const Call& call, rpc::IIfaceRealize& interface);

/// Appends the ids in the lists of a reply: those that the operation handled.
void add_ids(const fwbase::Message& reply, std::vector<unsigned int>& ids);

/// The requested ids that were not handled. `handled` is in the order of the request.
std::vector<unsigned int> missing_ids(const std::vector<unsigned int>& requested,
                                      const std::vector<unsigned int>& handled);

/// For example " 1 2": every id after a blank.
std::string to_text(const std::vector<unsigned int>& ids);

} // namespace host
