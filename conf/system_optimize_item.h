// The record of a listed service, which the store makes and a reply carries to the client.
#pragma once

#include "framework/rpc.h"

#include <string>
#include <vector>

namespace rpc
{

/// One listed service. Copies are shallow: they share the two strings, which have one owner at a
/// time (the store that makes the record, then the operation, then the reply parameters).
struct SystemOptimize_Item {
    rpc::int32 id;
    std::string* name; ///< heap object; UTF-8, as in the configuration file
    std::string* desc; ///< heap object; GBK
    rpc::int32 op;     ///< an OptimizeOperate value
};

using Items = std::vector<SystemOptimize_Item>;

/// Frees the strings of all records and sets the pointers to null. Null pointers are skipped.
inline void free_strings(Items& items) noexcept
{
    for (SystemOptimize_Item& item : items) {
        delete item.name;
        delete item.desc;
        item.name = nullptr;
        item.desc = nullptr;
    }
}

/// Calls free_strings when it goes out of scope. Borrows the records.
class ItemStringsGuard
{
public:
    explicit ItemStringsGuard(Items& items) noexcept : m_items(items) {}
    ~ItemStringsGuard() { free_strings(m_items); }
    ItemStringsGuard(const ItemStringsGuard&) = delete;
    ItemStringsGuard& operator=(const ItemStringsGuard&) = delete;

private:
    Items& m_items;
};

} // namespace rpc
