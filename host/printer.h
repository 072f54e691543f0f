// Prints replies as they arrive, as a table or as JSON.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host
{

using Operations = ex_std::vector<const rpc::IIfaceRealize::FAtt*>;

/// The end of a call.
struct Ending {
    ec::EC result = 0;                          ///< code of call_func
    const fwbase::Message* reply = nullptr;     ///< the final one, borrowed; null without
    std::vector<unsigned int> not_handled = {}; ///< requested ids of services
    std::string error = {};                     ///< why the operation failed; empty if it did not
};

class Printer
{
public:
    virtual ~Printer() = default;

    virtual void attributes(const rpc::IIfaceRealize::IAtt& attributes) = 0;
    virtual void operations(const Operations& list) = 0;
    /// A reply sent before the final one.
    virtual void item(const fwbase::Message& reply) = 0;
    virtual void end(const Ending& ending) = 0;
    /// A call that was not made.
    virtual void refused(const std::string& reason) = 0;
};

/// Prints aligned tables in UTF-8, coloured if asked. Does not close `out`.
std::unique_ptr<Printer> table_printer(std::FILE* out, bool colored);

/// Prints one JSON object per line, valid for any bytes in names and descriptions. Does not close
/// `out`.
std::unique_ptr<Printer> json_printer(std::FILE* out);

/// One listed service; texts are UTF-8.
struct ServiceRow {
    rpc::int32 id;
    std::string name;
    std::string desc;
    rpc::int32 op;
};

/// The services in a T_RECORD_LIST parameter. Records with other fields are skipped.
std::vector<ServiceRow> service_rows(const fwbase::Param& param);

} // namespace host
