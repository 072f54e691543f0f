// Containers that the host and its modules share. Their storage comes from the host.
#pragma once

#include "framework/fwbase.h"

#include <limits>
#include <new>
#include <vector>

/// Allocates from the host's memory manager, so that a module may fill a container and the host may
/// free it, or the other way round.
template <class T>
class smm_ex_allocator
{
public:
    using value_type = T;

    smm_ex_allocator() noexcept = default;
    template <class U>
    smm_ex_allocator(const smm_ex_allocator<U>&) noexcept
    {
    }

    /// Throws std::bad_alloc if the memory manager returns null.
    T* allocate(std::size_t count)
    {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_alloc();
        }
        void* const storage = fwbase::IFWBase::instance()->mem_manager()->alloc(count * sizeof(T));
        if (storage == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(storage);
    }

    void deallocate(T* storage, std::size_t) noexcept
    {
        fwbase::IFWBase::instance()->mem_manager()->free(storage);
    }

    template <class U>
    bool operator==(const smm_ex_allocator<U>&) const noexcept
    {
        return true;
    }
    template <class U>
    bool operator!=(const smm_ex_allocator<U>&) const noexcept
    {
        return false;
    }
};

namespace ex_std
{

template <class T>
using vector = std::vector<T, smm_ex_allocator<T>>;

} // namespace ex_std
