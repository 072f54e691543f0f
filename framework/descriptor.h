// A file descriptor that is closed by its owner, and writing to one.
#pragma once

#include <cerrno>
#include <cstddef>
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

/// Writes all bytes, also if signals interrupt that. Returns false, with the reason in errno, if it
/// fails.
inline bool write_all(int file, const char* bytes, std::size_t size)
{
    while (size != 0) {
        const ssize_t count = ::write(file, bytes, size);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        const std::size_t written = count > 0 ? static_cast<std::size_t>(count) : 0;
        bytes += written;
        size -= written;
    }
    return true;
}

} // namespace fwbase
