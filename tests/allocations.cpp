// Counts the objects made with new, and lets new fail on request.
#include "tests/fake_framework.h"

#include <algorithm>
#include <cstdlib>
#include <new>

long fake::living_objects = 0;
std::size_t fake::largest_object = 0;

namespace
{

void* allocate(std::size_t size) noexcept
{
    void* const storage = std::malloc(size);
    fake::living_objects += storage != nullptr;
    fake::largest_object = std::max(fake::largest_object, size);
    return storage;
}

} // namespace

void* operator new(std::size_t size)
{
    void* const storage = fake::exhaustion.strike("new") ? nullptr : allocate(size);
    return storage != nullptr ? storage : throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return fake::memory_faults.strike("new") ? nullptr : allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return fake::memory_faults.strike("new") ? nullptr : allocate(size);
}

void operator delete(void* storage) noexcept
{
    fake::living_objects -= storage != nullptr;
    std::free(storage);
}
void operator delete(void* storage, std::size_t) noexcept
{
    operator delete(storage);
}
void operator delete(void* storage, const std::nothrow_t&) noexcept
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
