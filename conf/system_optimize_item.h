// The record of the listing operations on its way from the store to the reply.
#pragma once

#include "framework/rpc.h"

#include <string>
#include <vector>

namespace rpc
{

/// One listed service. Copies are shallow and share the two strings; exactly one place owns them at
/// a time: the store that makes the record, then the operation, then the reply parameters.
struct SystemOptimize_Item {
    rpc::int32 id;
    std::string* name; ///< heap object; UTF-8, as in the configuration file
    std::string* desc; ///< heap object; GBK
    rpc::int32 op;     ///< an OptimizeOperate value
};

/// Frees, when it goes out of scope, the strings of those records whose pointers are not null, and
/// makes the pointers null.
class ItemStringsGuard
{
public:
    explicit ItemStringsGuard(std::vector<SystemOptimize_Item>& items) noexcept : m_items(items) {}
    ~ItemStringsGuard() { free_strings(m_items); }
    ItemStringsGuard(const ItemStringsGuard&) = delete;
    ItemStringsGuard& operator=(const ItemStringsGuard&) = delete;

    static void free_strings(std::vector<SystemOptimize_Item>& items) noexcept
    {
        for (SystemOptimize_Item& item : items) {
            delete item.name;
            delete item.desc;
            item.name = nullptr;
            item.desc = nullptr;
        }
    }

private:
    std::vector<SystemOptimize_Item>& m_items;
};

} // namespace rpc
