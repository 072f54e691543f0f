// What a transaction takes from its host.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace transaction
{

using Ids = std::vector<unsigned int>;

/// A service in a reply that the module sends before its final one.
struct Reply {
    unsigned int id;
    std::string name; ///< sent by ls_service only; otherwise empty
    int op;           ///< its state, an Op; sent by ls_service only
};

/// Runs an operation of the module and returns its replies in their order. `flag` is for
/// ignore_service; ls_service takes neither flag nor ids. Throws std::exception if the operation
/// gave no final reply or failed.
using Call =
    std::function<std::vector<Reply>(const std::string& operation, bool flag, const Ids& ids)>;

/// Takes a message for people, one line in UTF-8.
using Say = std::function<void(const std::string& message)>;

/// How long a call waits for the lock.
struct Waiting {
    /// At most so many seconds; negative: without a limit.
    long seconds = -1;
    /// Called many times a second while the call waits, unless it is empty. If it throws, the
    /// waiting ends with this exception.
    std::function<void()> check;
};

} // namespace transaction
