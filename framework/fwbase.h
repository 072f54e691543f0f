// The host framework's base library: memory, objects found by name, data blocks and the run log.
//
// The order of the virtual operations is a binary contract: operations are only ever appended.
// Objects are given back with their release(), never deleted. Strings are NUL-terminated bytes.
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
    /// Prepares the object for use. `arg` is the host's and may be null.
    virtual ec::EC init(void* arg) = 0;
    /// Ends the use that init began. The object itself stays alive.
    virtual void release() = 0;
    virtual ~IBase() = default;
};

} // namespace IMM

/// A block of bytes that carries a call or a reply.
class IDataBlock
{
public:
    /// First byte of the block; valid until release().
    virtual const unsigned char* data() const = 0;
    /// Length in bytes.
    virtual std::uint32_t size() const = 0;
    virtual void release() = 0;
    /// First byte of the block, for writing.
    virtual unsigned char* buffer() = 0;
    /// Sets the length in bytes, at most the length that the block was made with.
    virtual void set_size(std::uint32_t size) = 0;

protected:
    ~IDataBlock() = default;
};

/// Storage that belongs to the host. Safe to use from several threads.
class IMemManager
{
public:
    /// Makes a block of `size` bytes. Success fills `block`, which the caller then owns.
    virtual ec::EC new_block(IDataBlock*& block, std::uint32_t size) = 0;
    /// Raw storage of `size` bytes, aligned for every type, or null.
    virtual void* alloc(std::size_t size) = 0;
    /// Gives storage of alloc() back; null is ignored.
    virtual void free(void* storage) = 0;

protected:
    ~IMemManager() = default;
};

/// The host's objects by name.
class IObjRegistry
{
public:
    /// Finds the object called `name`. Success fills `*object` with one reference, which the caller
    /// gives back with the object's release(); failure leaves `*object` as it is.
    virtual ec::EC query(const char* name, void** object) = 0;

protected:
    ~IObjRegistry() = default;
};

/// The host's run log.
class IRunLog
{
public:
    /// Mask of the enabled entry types. Only the host writes it.
    static std::uint32_t ms_type_sign;

    /// Size in characters of the buffer that FormatStr returns.
    static constexpr std::size_t format_size = 1024;

    /// Formats in the manner of printf into a new buffer of format_size characters; the text is cut
    /// after 1022 of them. The caller frees the result with delete[]; null means no memory.
    /// Compiled into its user, so that the buffer comes from the heap that frees it.
    [[gnu::format(printf, 1, 2)]] static char* FormatStr(const char* format, ...);

    /// Writes one entry. `text` is GBK; `where` names the place in the source and may be null.
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
    // One character less than the buffer holds: the last one is never written and stays NUL.
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, format_size - 1, format, arguments);
    va_end(arguments);
    return text;
}

/// The framework itself. What its operations return is borrowed and lives as long as the process.
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
