#include "fwbase/framework.h"

#include "framework/rpc.h"
#include "fwbase/message.h"
#include "fwbase/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace fwbase
{

namespace
{

constexpr ec::EC success = 0x80000000;
constexpr ec::EC no_such_object = 0x04010001;
constexpr ec::EC no_memory = 0x04020001;

class RunLog final : public IRunLog
{
public:
    void log(std::uint32_t type, const char* text, const char* where) override
    {
        std::fprintf(stderr, "run log: type %u: %s [%s]\n", type,
                     printable(gbk_to_utf8(text)).c_str(), where == nullptr ? "" : where);
    }
};

class DataBlock final : public IDataBlock
{
public:
    /// Takes ownership of `size` bytes.
    DataBlock(std::unique_ptr<unsigned char[]> bytes, std::uint32_t size)
        : m_bytes(std::move(bytes)), m_capacity(size), m_size(size)
    {
    }

    const unsigned char* data() const override { return m_bytes.get(); }
    std::uint32_t size() const override { return m_size; }
    void release() override { delete this; }
    unsigned char* buffer() override { return m_bytes.get(); }
    void set_size(std::uint32_t size) override { m_size = size < m_capacity ? size : m_capacity; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    std::uint32_t m_capacity;
    std::uint32_t m_size;
};

class MemManager final : public IMemManager
{
public:
    ec::EC new_block(IDataBlock*& block, std::uint32_t size) override
    {
        std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[size]);
        if (!bytes) {
            return no_memory;
        }
        auto* const made = new (std::nothrow) DataBlock(std::move(bytes), size);
        if (made == nullptr) {
            return no_memory;
        }
        block = made;
        return success;
    }
    void* alloc(std::size_t size) override { return std::malloc(size); }
    void free(void* storage) override { std::free(storage); }
};

/// Lives as long as the process, so it does not count references.
class RpcService final : public rpc::IRpcService
{
public:
    rpc::IMsgFactory* msg_factory() override { return &m_factory; }
    void release() override {}

private:
    MsgFactory m_factory;
};

class Registry final : public IObjRegistry
{
public:
    ec::EC query(const char* name, void** object) override
    {
        if (std::strcmp(name, "obj.fws.rpc") != 0) {
            return no_such_object;
        }
        *object = static_cast<rpc::IRpcService*>(&m_rpc);
        return success;
    }

private:
    RpcService m_rpc;
};

class Framework final : public IFWBase
{
public:
    IRunLog* run_log() override { return &m_log; }
    IObjRegistry* obj_registry() override { return &m_registry; }
    IMemManager* mem_manager() override { return &m_memory; }

private:
    RunLog m_log;
    Registry m_registry;
    MemManager m_memory;
};

} // namespace

IFWBase& reference_framework()
{
    static Framework framework;
    return framework;
}

} // namespace fwbase
