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
        description,  ///< the program's: describes the interface
        record,       ///< the program's: prints the record
        edit          ///< the program's: adds or removes candidates
    };
    static constexpr int same = -1;

    const char* name = "";
    const char* arguments = "";    ///< as in a usage text; with a blank in front, unless empty
    const char* summary = nullptr; ///< a line of --help; null: not shown there
    Kind kind = Kind::call;
    /// Whether it may write: then it holds the lock, and signals cannot interrupt it.
    bool writes = true;
    int from = same;               ///< the state, a transaction::Op, that it takes services from
    int to = same;                 ///< and to; ignore_service off goes the other way
    const char* element = nullptr; ///< of the configuration, without which it fails
};

/// In the order of the help.
const std::vector<Operation>& all_operations();

/// The operation of that name. An operation that the table does not have, one of another module,
/// takes no arguments, and counts as writing.
const Operation& find_operation(const std::string& name);

/// Whether it is a command of the program, which needs no operation of the module.
bool is_own(const Operation& operation);

} // namespace host
