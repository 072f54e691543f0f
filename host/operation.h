// The operations: one table that says what each takes and does.
#pragma once

#include <string>
#include <vector>

namespace host
{

struct Operation {
    enum class Kind {
        call,         ///< one call of the module
        service_call, ///< calls of the module in a transaction; lists the machine with chkconfig
        description,  ///< the program itself describes the interface
        record,       ///< the program itself prints the record
        edit          ///< the program itself adds or removes candidates
    };
    static constexpr int same = -1;

    const char* name = "";
    const char* arguments = "";    ///< as in a usage text; with a blank in front, unless empty
    const char* summary = nullptr; ///< a line of --help; null: not shown there
    Kind kind = Kind::call;
    /// Whether it may write: then it holds the lock, and signals cannot interrupt it.
    bool writes = true;
    int from = same;               ///< state, a transaction::Op, of the services that it changes
    int to = same;                 ///< their state afterwards; ignore_service off swaps the two
    const char* element = nullptr; ///< the element of the configuration without which it fails
};

/// In the order of the help.
const std::vector<Operation>& all_operations();

/// The operation of that name. If the table lacks it, it belongs to another module: it takes no
/// arguments and may write.
const Operation& find_operation(const std::string& name);

/// Whether the program carries out the operation itself, so that the module need not have it.
bool is_own(const Operation& operation);

} // namespace host
