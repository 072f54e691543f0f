// Prints answers as a table or as JSON.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"
#include "transaction/transaction.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host
{

using Operations = ex_std::vector<const rpc::IIfaceRealize::FAtt*>;

/// The end of a call.
struct Ending {
    ec::EC result = 0;                      ///< code of call_func
    const fwbase::Message* reply = nullptr; ///< the final one, borrowed; null without
    /// Of a call that changes services, what became of each.
    std::vector<transaction::Outcome> outcomes = {};
    std::string error = {}; ///< why the operation failed; empty if it did not
    bool is_rehearsal = false;
};

class Printer
{
public:
    virtual ~Printer() = default;

    virtual void attributes(const rpc::IIfaceRealize::IAtt& attributes) = 0;
    virtual void operations(const Operations& list) = 0;
    virtual void services(const std::vector<transaction::Service>& list) = 0;
    /// Prints the services that were handled, and how the call ended.
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
