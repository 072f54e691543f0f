// A file descriptor that is closed by its owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace fwbase
{

/// Owns a file descriptor; -1 is none.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept { swap(other); }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        swap(other);
        return *this;
    }
    ~Descriptor()
    {
        if (is_open()) {
            ::close(m_number);
        }
    }

    bool is_open() const noexcept { return m_number != -1; }
    int get() const noexcept { return m_number; }

private:
    void swap(Descriptor& other) noexcept { std::swap(m_number, other.m_number); }

    int m_number = -1;
};

} // namespace fwbase
