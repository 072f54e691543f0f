#include "host/operation.h"

#include "transaction/entry.h"

#include <algorithm>

namespace host
{

namespace
{

using Kind = Operation::Kind;
using transaction::ignored;
using transaction::none;
using transaction::optimized;

constexpr int same = Operation::same;
constexpr bool reads = false;
constexpr bool writes = true;

} // namespace

const std::vector<Operation>& all_operations()
{
    static const std::vector<Operation> all = {
        {"ls_service", "", "list the candidates and their states", Kind::service_call, writes},
        {"optimize_service", " SERVICE...", "switch services off", Kind::service_call, writes, none,
         optimized},
        {"restore_service", " SERVICE...|--all", "switch them, or all, back on", Kind::service_call,
         writes, optimized, none},
        {"ignore_service", " on|off SERVICE...", "mark as ignored, or remove the mark",
         Kind::service_call, writes, none, ignored},
        {"switched", "", "print the record of what was switched off", Kind::record, reads},
        {"add_service", " NAME [DESCRIPTION...]", "add a candidate", Kind::edit, writes},
        {"remove_service", " NAME...", "remove candidates", Kind::edit, writes},
        {"get_optimize_sorce", "", "print the score", Kind::call, reads, same, same,
         "myself_config/optimize_sorce"},
        {"set_optimize_sorce", " SCORE", "set the score", Kind::call, writes, same, same,
         "myself_config/optimize_sorce"},
        {"get_optimize_num", "", "print the count", Kind::call, reads, same, same,
         "myself_config/optimize_num"},
        {"attributes", "", "describe the interface", Kind::description, reads},
        {"operations", "", "list all operations of the interface", Kind::description, reads},
        // These do nothing on this kind of machine.
        {"ls_reg", "", nullptr, Kind::call, reads},
        {"optimize_reg", " ID...", nullptr, Kind::call, reads},
        {"restore_reg", " ID...", nullptr, Kind::call, reads},
        {"ignore_reg", " on|off ID...", nullptr, Kind::call, reads},
        {"ls_other", "", nullptr, Kind::call, reads},
        {"optimize_other", " ID...", nullptr, Kind::call, reads},
        {"restore_other", " ID...", nullptr, Kind::call, reads},
        {"ignore_other", " on|off ID...", nullptr, Kind::call, reads},
    };
    return all;
}

const Operation& find_operation(const std::string& name)
{
    static const Operation unknown = {"", "", nullptr, Kind::call, writes};
    const std::vector<Operation>& all = all_operations();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&name](const Operation& each) { return each.name == name; });
    return found == all.end() ? unknown : *found;
}

bool is_own(const Operation& operation)
{
    return operation.kind != Kind::call && operation.kind != Kind::service_call;
}

} // namespace host
