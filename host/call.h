// One call of a module: from typed arguments to decoded replies.
#pragma once

#include "framework/rpc.h"
#include "host/message.h"

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

/// A call block that holds the given request message, with an empty header extension. Throws
/// std::bad_alloc.
owned<fwbase::IDataBlock> make_call_block(rpc::IRequest& request);

/// Calls `operation`, hands every reply that it sends while it runs to `on_item`, and its final
/// reply, or null when it gets none, to the caller. `result` is the code of call_func.
owned<Message> call(rpc::IIfaceRealize& interface, const std::string& operation,
                    const Arguments& arguments, const std::function<void(const Message&)>& on_item,
                    ec::EC& result);

} // namespace host
