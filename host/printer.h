// What optimize_host prints: replies as they arrive, for people or for programs.
#pragma once

#include "framework/rpc.h"
#include "fwbase/message.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host
{

class Printer
{
public:
    virtual ~Printer() = default;

    virtual void attributes(const rpc::IIfaceRealize::IAtt& attributes) = 0;
    virtual void operation(const rpc::IIfaceRealize::FAtt& operation) = 0;
    /// A reply that came before the final one.
    virtual void item(const fwbase::Message& reply) = 0;
    /// The end of a call: its result code, and its reply if it got one.
    virtual void end(ec::EC result, const fwbase::Message* reply) = 0;
    /// A line of input that is no call.
    virtual void refused(const std::string& reason) = 0;
};

/// An aligned table in UTF-8, in colours if asked for.
std::unique_ptr<Printer> table_printer(std::FILE* out, bool colored);

/// One JSON object a line; every line is valid for any bytes in names and descriptions.
std::unique_ptr<Printer> json_printer(std::FILE* out);

/// One listed service, in UTF-8.
struct ServiceRow {
    rpc::int32 id;
    std::string name;
    std::string desc;
    rpc::int32 op;
};

/// The services of a T_RECORD_LIST parameter; records that are none are left out.
std::vector<ServiceRow> service_rows(const fwbase::Param& param);

} // namespace host
