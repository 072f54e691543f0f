#include "tests/fake_framework.h"

#include "framework/xml.h"
#include "fwbase/message.h"
#include "fwbase/xml_document.h"

#include <cstdlib>
#include <forward_list>
#include <stdexcept>
#include <variant>

namespace fake
{

Faults rpc_faults;
Faults xml_faults;
Faults memory_faults;
Faults exhaustion;
std::uint32_t reply_size = 0;
std::string run_log;
int rpc_references = 0;
int unsized_blocks = 0;

namespace
{

/// A message that can be written short or claim another size.
class Message final : public rpc::IRequest
{
public:
    explicit Message(owned<rpc::IRequest> real) : m_real(std::move(real)) {}

    std::uint32_t write(unsigned char* buffer, std::uint32_t size) override
    {
        if (rpc_faults.strike("write", 0x040C000B)) {
            return size - 1;
        }
        ++unsized_blocks;
        return m_real->write(buffer, size);
    }
    int read(const unsigned char* data, std::uint32_t size) override
    {
        return m_real->read(data, size);
    }
    std::uint32_t size() override { return reply_size != 0 ? reply_size : m_real->size(); }
    void release() override { delete this; }
    const char* func_name() override { return m_real->func_name(); }
    rpc::IParams* params() override { return m_real->params(); }

    static rpc::IRequest* wrap(rpc::IRequest* real)
    {
        owned<rpc::IRequest> guard(real);
        return guard ? new Message(std::move(guard)) : nullptr;
    }

private:
    owned<rpc::IRequest> m_real;
};

class Block final : public fwbase::IDataBlock
{
public:
    explicit Block(std::uint32_t size) : m_bytes(size) {}

    const unsigned char* data() const override { return m_bytes.data(); }
    std::uint32_t size() const override { return static_cast<std::uint32_t>(m_bytes.size()); }
    void release() override { delete this; }
    unsigned char* buffer() override { return m_bytes.data(); }
    void set_size(std::uint32_t size) override
    {
        EXPECT_EQ(size, m_bytes.size());
        --unsized_blocks;
    }

private:
    std::vector<unsigned char> m_bytes;
};

/// All of the framework's objects in one.
class Framework final : public fwbase::IFWBase,
                        fwbase::IRunLog,
                        fwbase::IObjRegistry,
                        fwbase::IMemManager,
                        rpc::IRpcService,
                        rpc::IMsgFactory
{
    fwbase::IRunLog* run_log() override { return this; }
    fwbase::IObjRegistry* obj_registry() override { return this; }
    fwbase::IMemManager* mem_manager() override { return this; }
    rpc::IMsgFactory* msg_factory() override { return this; }
    void release() override
    {
        --rpc_references;
        if (rpc_faults.strike("release")) {
            throw std::runtime_error("release");
        }
    }
    void* alloc(std::size_t size) override { return std::malloc(size); }
    void free(void* storage) override { std::free(storage); }
    ec::EC new_block(fwbase::IDataBlock*& block, std::uint32_t size) override
    {
        if (rpc_faults.strike("new_block", 0x04020001)) {
            return rpc_faults.code;
        }
        block = new Block(size);
        return block_made;
    }
    void log(std::uint32_t type, const char* text, const char* where) override
    {
        fake::run_log +=
            std::to_string(type) + ' ' + text + " [" + (where ? where : "null") + "]\n";
    }
    ec::EC query(const char* name, void** object) override
    {
        EXPECT_STREQ(name, "obj.fws.rpc");
        if (rpc_faults.strike("query", 0x04010001)) {
            return rpc_faults.code;
        }
        ++rpc_references;
        *object = static_cast<rpc::IRpcService*>(this);
        return 0x80000000;
    }
    rpc::IRequest* new_request(const char* name) override
    {
        const bool fails = rpc_faults.strike("new_request", 0x040C0008);
        return fails ? nullptr : Message::wrap(m_factory.new_request(name));
    }
    rpc::IRequest* new_reply(rpc::ICommand* command, ec::EC code) override
    {
        const bool fails = rpc_faults.strike("new_reply", 0x040C0009);
        return fails ? nullptr : Message::wrap(m_factory.new_reply(command, code));
    }
    rpc::IParams* new_record() override
    {
        return rpc_faults.strike("new_record", 0x040C0007) ? nullptr : m_factory.new_record();
    }
    rpc::IParam* new_param(unsigned type, const void* value, int hand_over) override
    {
        const bool fails = rpc_faults.strike("new_param", 0x040C0006);
        return fails ? nullptr : m_factory.new_param(type, value, hand_over);
    }

    fwbase::MsgFactory m_factory;
};

/// A document, node or list of the reference framework. Checks that releases come in reverse order.
class Xml final : public IXmlDocument, public IXmlNode, public IXmlNodeList
{
public:
    template <class Real>
    explicit Xml(owned<Real> real) : m_real(std::move(real))
    {
    }

    /// A wrapper that the user releases, or null for null.
    template <class Real>
    static Xml* give_out(Real* real)
    {
        if (real == nullptr) {
            return nullptr;
        }
        owned<Real> guard(real); // in case there is no memory for the wrapper
        Xml* const made = new Xml(std::move(guard));
        made->m_older = std::exchange(s_newest, made);
        return made;
    }
    void release() override
    {
        EXPECT_EQ(s_newest, this);
        s_newest = m_older;
        delete this;
        step("release");
    }
    static void step(std::string_view call)
    {
        if (xml_faults.strike(call)) {
            throw CLiteXmlException("fake", 0, "fails");
        }
    }

    void load(const char* path) override { real<IXmlDocument>().load(path); }
    IXmlNode* root() override { return give_out(real<IXmlDocument>().root()); }
    void save(const char* path) override { real<IXmlDocument>().save(path); }
    IXmlNode* attribute(const char* name) override
    {
        return &m_attributes.emplace_front(owned<IXmlNode>(real<IXmlNode>().attribute(name)));
    }
    std::string value() override { return real<IXmlNode>().value(); }
    void setValue(const char* text) override { real<IXmlNode>().setValue(text); }
    IXmlNodeList* selectNodes(const char* path) override
    {
        return give_out(real<IXmlNode>().selectNodes(path));
    }
    IXmlNode* selectSingleNode(const char* path) override
    {
        return give_out(real<IXmlNode>().selectSingleNode(path));
    }
    IXmlNode* item(int position) override { return give_out(real<IXmlNodeList>().item(position)); }
    int count() override { return real<IXmlNodeList>().count(); }

private:
    // The real object, unless the call is to fail.
    template <class Real>
    Real& real()
    {
        step("another");
        return *std::get<owned<Real>>(m_real);
    }

    static inline Xml* s_newest = nullptr;
    Xml* m_older = nullptr;
    std::variant<owned<IXmlDocument>, owned<IXmlNode>, owned<IXmlNodeList>> m_real;
    std::forward_list<Xml> m_attributes; // never released by the user
};

} // namespace
} // namespace fake

std::uint32_t fwbase::IRunLog::ms_type_sign = 8;

fwbase::IFWBase* fwbase::IFWBase::instance()
{
    static fake::Framework framework;
    return &framework;
}

IXmlDocument* newXmlDocument()
{
    fake::Xml::step("another");
    return fake::Xml::give_out(fwbase::new_xml_document());
}
