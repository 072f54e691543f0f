// Prints answers as a table or as JSON.
#pragma once

#include "host/answer.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host
{

using Operations = ex_std::vector<const rpc::IIfaceRealize::FAtt*>;

class Printer
{
public:
    virtual ~Printer() = default;

    virtual void attributes(const rpc::IIfaceRealize::IAtt& attributes) = 0;
    virtual void operations(const Operations& list) = 0;
    /// Prints what a call listed or handled, and how it ended.
    virtual void answer(const Answer& answer) = 0;
    /// Prints why a call was not made.
    virtual void refused(const std::string& reason) = 0;
};

/// Prints aligned tables in UTF-8 to `out`, and whether a call succeeded to `messages`. Colours
/// what goes to a terminal, and cuts rows to its width unless `is_full`. Does not close the files.
std::unique_ptr<Printer> table_printer(std::FILE* out, std::FILE* messages, bool is_full);

/// Prints one JSON object per line, valid for any bytes in names and descriptions. Does not close
/// `out`.
std::unique_ptr<Printer> json_printer(std::FILE* out);

} // namespace host
