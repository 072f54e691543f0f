// Prints replies as they arrive, as a table or as JSON.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace host
{

using Operations = ex_std::vector<const rpc::IIfaceRealize::FAtt*>;

/// Names of services by id, in UTF-8.
using Names = std::map<unsigned int, std::string>;

/// A requested service that was not handled.
struct Unhandled {
    unsigned int id;
    std::string name; ///< empty if it is not configured
    std::string reason;
};

/// The end of a call.
struct Ending {
    ec::EC result = 0;                       ///< code of call_func
    const fwbase::Message* reply = nullptr;  ///< the final one, borrowed; null without
    std::vector<Unhandled> not_handled = {}; ///< for a reason that is a failure
    std::vector<Unhandled> unchanged = {};   ///< in the requested state already
    std::string error = {};                  ///< why the operation failed; empty if it did not
};

class Printer
{
public:
    virtual ~Printer() = default;

    virtual void attributes(const rpc::IIfaceRealize::IAtt& attributes) = 0;
    virtual void operations(const Operations& list) = 0;
    /// The names of the configured services, for the replies that follow until `end`.
    virtual void begin(const Names& names) = 0;
    /// A reply sent before the final one.
    virtual void item(const fwbase::Message& reply) = 0;
    virtual void end(const Ending& ending) = 0;
    /// A call that was not made.
    virtual void refused(const std::string& reason) = 0;
};

/// Prints aligned tables in UTF-8 to `out`, and whether a call succeeded to `messages`. Colours
/// what goes to a terminal. Does not close the files.
std::unique_ptr<Printer> table_printer(std::FILE* out, std::FILE* messages);

/// Prints one JSON object per line, valid for any bytes in names and descriptions. Does not close
/// `out`.
std::unique_ptr<Printer> json_printer(std::FILE* out);

} // namespace host
