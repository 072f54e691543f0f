// A service in the module's configuration.
#pragma once

#include <string>

namespace transaction
{

/// States of a configured service.
enum Op : int { none, optimized, ignored, unavailable };

/// A configured service; texts are UTF-8.
struct Entry {
    unsigned int id;
    std::string name;
    std::string desc;
    int op; ///< an Op, but the file may hold any number
    std::string level;
    bool xinetd;
};

} // namespace transaction
