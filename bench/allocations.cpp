#include "bench/allocations.h"

#include <cstdlib>
#include <new>

namespace
{

long count = 0;

} // namespace

long allocations::made()
{
    return count;
}

// The other forms of new and delete end in these.

void* operator new(std::size_t size)
{
    ++count;
    if (void* const storage = std::malloc(size == 0 ? 1 : size)) {
        return storage;
    }
    throw std::bad_alloc();
}

void operator delete(void* storage) noexcept
{
    std::free(storage);
}

void operator delete(void* storage, std::size_t) noexcept
{
    std::free(storage);
}
