#include "tests/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<long> living{0};
std::atomic<int> until_failure{0};

void* allocate(std::size_t size) noexcept
{
    void* const storage = std::malloc(size == 0 ? 1 : size);
    living += storage != nullptr;
    return storage;
}

} // namespace

long allocations::live()
{
    return living;
}

void allocations::fail_nothrow(int n)
{
    until_failure = n;
}

void* operator new(std::size_t size)
{
    if (void* const storage = allocate(size)) {
        return storage;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return until_failure > 0 && --until_failure == 0 ? nullptr : allocate(size);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

void operator delete(void* storage) noexcept
{
    living -= storage != nullptr;
    std::free(storage);
}

void operator delete(void* storage, std::size_t) noexcept
{
    operator delete(storage);
}
void operator delete[](void* storage) noexcept
{
    operator delete(storage);
}
void operator delete[](void* storage, std::size_t) noexcept
{
    operator delete(storage);
}

void operator delete(void* storage, const std::nothrow_t&) noexcept
{
    operator delete(storage);
}
