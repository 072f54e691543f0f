// The host framework's base library: memory, objects found by name, data blocks and the run log.
//
// The order of the virtual operations is a binary contract: append only. Give objects back with
// release(); never delete them. Strings are NUL-terminated bytes.
//
// Operations may throw unless their comment says otherwise. A module gives back what it holds and
// lets the exception pass to the host through init, release, fatts or call_func. A release() should
// not throw, because its exception may be lost. An operation returns null only where its comment
// says so.
#pragma once

#include "framework/ec.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#pragma GCC visibility push(default)

namespace fwbase
{

namespace IMM
{

/// Base of every object that a plug-in module hands to the host.
class IBase
{
public:
    /// Prepares the object for use. `arg` is defined by the host and may be null.
    virtual ec::EC init(void* arg) = 0;
    /// Undoes init. Does not destroy the object.
    virtual void release() = 0;
    virtual ~IBase() = default;
};

} // namespace IMM

/// A block of bytes that carries a call or a reply.
class IDataBlock
{
public:
    /// The first byte of the block; valid until release().
    virtual const unsigned char* data() const = 0;
    /// The length in bytes.
    virtual std::uint32_t size() const = 0;
    virtual void release() = 0;
    /// The first byte of the block, for writing; valid until release().
    virtual unsigned char* buffer() = 0;
    /// Sets the length in bytes. It cannot exceed the length with which the block was made.
    virtual void set_size(std::uint32_t size) = 0;

protected:
    ~IDataBlock() = default;
};

/// The host's memory manager. Thread-safe.
class IMemManager
{
public:
    /// Makes a block of `size` bytes. On success sets `block`, which the caller owns.
    virtual ec::EC new_block(IDataBlock*& block, std::uint32_t size) = 0;
    /// Returns storage of `size` bytes, aligned for every type, or null.
    virtual void* alloc(std::size_t size) = 0;
    /// Frees storage from alloc(). Ignores null. Must not throw.
    virtual void free(void* storage) = 0;

protected:
    ~IMemManager() = default;
};

/// The registry of the host's objects.
class IObjRegistry
{
public:
    /// Finds the object called `name`. On success sets `*object` to a new reference, which the
    /// caller gives back with the object's release(). On failure leaves `*object` unchanged.
    virtual ec::EC query(const char* name, void** object) = 0;

protected:
    ~IObjRegistry() = default;
};

/// The host's run log.
class IRunLog
{
public:
    /// Mask of the enabled entry types. Only the host may change it.
    static std::uint32_t ms_type_sign;

    /// Size in bytes of the buffer that FormatStr returns.
    static constexpr std::size_t format_size = 1024;

    /// Formats like printf into a new buffer of format_size bytes, and cuts the text after 1022
    /// bytes. The caller frees the buffer with delete[]. Returns null if out of memory. Inline, so
    /// that the caller allocates and frees the buffer with the same heap.
    [[gnu::format(printf, 1, 2)]] static char* FormatStr(const char* format, ...);

    /// Writes one entry. `text` is GBK. `where` is the location in the source and may be null.
    virtual void log(std::uint32_t type, const char* text, const char* where) = 0;

protected:
    ~IRunLog() = default;
};

inline char* IRunLog::FormatStr(const char* format, ...)
{
    char* const text = new (std::nothrow) char[format_size];
    if (text == nullptr) {
        return nullptr;
    }
    std::memset(text, 0, format_size);
    // One byte less than the buffer holds: its last byte is never written and stays NUL.
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, format_size - 1, format, arguments);
    va_end(arguments);
    return text;
}

/// The framework itself. Its operations return borrowed objects that live as long as the process.
class IFWBase
{
public:
    static IFWBase* instance();

    virtual IRunLog* run_log() = 0;
    virtual IObjRegistry* obj_registry() = 0;
    virtual IMemManager* mem_manager() = 0;

protected:
    ~IFWBase() = default;
};

} // namespace fwbase

#pragma GCC visibility pop
