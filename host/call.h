// One call of a module: from typed arguments to decoded replies.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace host
{

/// The inputs of an operation; what is not set is not sent. They are sent in this order.
struct Arguments {
    std::optional<bool> flag;
    std::optional<rpc::int32> value;
    std::optional<std::vector<unsigned int>> ids;
};

struct Call {
    std::string operation;
    Arguments arguments;
};

/// The call's block, with an empty header extension. Throws std::bad_alloc.
owned<fwbase::IDataBlock> make_call_block(const Call& call);

/// Runs the call of a block, hands every reply that comes while it runs to `on_item`, and the final
/// reply, or null when there is none, to the caller. `result` is the code of call_func.
owned<fwbase::Message> run_call(rpc::IIfaceRealize& interface, const fwbase::IDataBlock& block,
                                const std::function<void(const fwbase::Message&)>& on_item,
                                ec::EC& result);

} // namespace host
