// Counts the objects made with new. The forms that are left out end in these, or, with a
// sanitizer, balance among themselves.
#include "tests/fake_framework.h"

#include <cstdlib>
#include <new>

long fake::living_objects = 0;

void* operator new(std::size_t size)
{
    void* const storage = std::malloc(size);
    if (storage == nullptr) {
        throw std::bad_alloc();
    }
    ++fake::living_objects;
    return storage;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return fake::memory_faults.strike("new") ? nullptr : operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return fake::memory_faults.strike("new") ? nullptr : operator new[](size);
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
