#include "host/framework.h"

#include "framework/rpc.h"
#include "host/message.h"
#include "host/text.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <new>

namespace host
{

namespace
{

constexpr ec::EC success = 0x80000000;
constexpr ec::EC no_such_object = 0x04010001;
constexpr ec::EC no_memory = 0x04020001;

class RunLog final : public fwbase::IRunLog
{
public:
    void log(std::uint32_t type, const char* text, const char* where) override
    {
        std::fprintf(stderr, "run log: type %u: %s [%s]\n", type,
                     printable(gbk_to_utf8(text)).c_str(), where == nullptr ? "" : where);
    }
};

class DataBlock final : public fwbase::IDataBlock
{
public:
    /// Takes `size` bytes over.
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

class MemManager final : public fwbase::IMemManager
{
public:
    ec::EC new_block(fwbase::IDataBlock*& block, std::uint32_t size) override
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

class RpcService final : public rpc::IRpcService
{
public:
    rpc::IMsgFactory* msg_factory() override { return &m_factory; }
    void release() override { --m_references; }

    RpcService* obtain()
    {
        ++m_references;
        return this;
    }
    int references() const { return m_references; }

private:
    MsgFactory m_factory;
    std::atomic<int> m_references{0};
};

class Registry final : public fwbase::IObjRegistry
{
public:
    ec::EC query(const char* name, void** object) override
    {
        if (std::strcmp(name, "obj.fws.rpc") != 0) {
            return no_such_object;
        }
        *object = static_cast<rpc::IRpcService*>(m_rpc.obtain());
        return success;
    }

    const RpcService& rpc() const { return m_rpc; }

private:
    RpcService m_rpc;
};

class Framework final : public fwbase::IFWBase
{
public:
    fwbase::IRunLog* run_log() override { return &m_log; }
    Registry* obj_registry() override { return &m_registry; }
    fwbase::IMemManager* mem_manager() override { return &m_memory; }

private:
    RunLog m_log;
    Registry m_registry;
    MemManager m_memory;
};

Framework& the_framework()
{
    static Framework framework;
    return framework;
}

} // namespace

fwbase::IFWBase& framework()
{
    return the_framework();
}

std::string library_folder()
{
    Dl_info info = {};
    ::dladdr(reinterpret_cast<const void*>(&the_framework), &info);
    const std::string path = info.dli_fname == nullptr ? "" : info.dli_fname;
    return path.substr(0, path.rfind('/') + 1);
}

int rpc_references()
{
    return the_framework().obj_registry()->rpc().references();
}

} // namespace host
