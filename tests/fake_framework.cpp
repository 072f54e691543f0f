#include "tests/fake_framework.h"

#include "framework/xml.h"
#include "fwbase/framework.h"
#include "fwbase/xml_document.h"

#include <forward_list>

namespace fake
{

Faults rpc_faults;
Faults xml_faults;
Faults memory_faults;
Faults exhaustion;
std::string run_log;
int rpc_references = 0;

namespace
{

/// A reply that can be written short.
class Reply final : public rpc::IRequest
{
public:
    explicit Reply(owned<rpc::IRequest> real) : m_real(std::move(real)) {}

    std::uint32_t write(unsigned char* buffer, std::uint32_t size) override
    {
        return rpc_faults.strike("write", 0x040C000B) ? size - 1 : m_real->write(buffer, size);
    }
    int read(const unsigned char*, std::uint32_t) override { return 0; }
    std::uint32_t size() override { return m_real->size(); }
    void release() override { delete this; }
    const char* func_name() override { return m_real->func_name(); }
    rpc::IParams* params() override { return m_real->params(); }

private:
    owned<rpc::IRequest> m_real;
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
    void release() override { --rpc_references; }
    void* alloc(std::size_t size) override { return real().mem_manager()->alloc(size); }
    void free(void* storage) override { real().mem_manager()->free(storage); }
    ec::EC new_block(fwbase::IDataBlock*& block, std::uint32_t size) override
    {
        return rpc_faults.strike("new_block", 0x04020001)
                   ? rpc_faults.code
                   : real().mem_manager()->new_block(block, size);
    }
    void log(std::uint32_t type, const char* text, const char* where) override
    {
        fake::run_log +=
            std::to_string(type) + ' ' + text + " [" + (where ? where : "null") + "]\n";
    }
    ec::EC query(const char*, void** object) override
    {
        if (rpc_faults.strike("query", 0x04010001)) {
            return rpc_faults.code;
        }
        ++rpc_references;
        *object = static_cast<rpc::IRpcService*>(this);
        return 0x80000000;
    }
    rpc::IRequest* new_request(const char* name) override
    {
        return rpc_faults.strike("new_request", 0x040C0008) ? nullptr : m_factory.new_request(name);
    }
    rpc::IRequest* new_reply(rpc::ICommand* command, ec::EC code) override
    {
        owned<rpc::IRequest> reply(rpc_faults.strike("new_reply", 0x040C0009)
                                       ? nullptr
                                       : m_factory.new_reply(command, code));
        return reply ? new Reply(std::move(reply)) : nullptr;
    }
    rpc::IParams* new_record() override
    {
        return rpc_faults.strike("new_record", 0x040C0007) ? nullptr : m_factory.new_record();
    }
    rpc::IParam* new_param(unsigned type, const void* value, int hand_over) override
    {
        return rpc_faults.strike("new_param", 0x040C0006)
                   ? nullptr
                   : m_factory.new_param(type, value, hand_over);
    }

    static fwbase::IFWBase& real() { return fwbase::reference_framework(); }

    fwbase::MsgFactory m_factory;
};

/// A document, a node or a list of the reference host's. Insists on releases in reverse order.
class Xml final : public IXmlDocument, public IXmlNode, public IXmlNodeList
{
public:
    explicit Xml(IXmlDocument* real) : m_document(real) {}
    explicit Xml(IXmlNode* real) : m_node(real) {}
    explicit Xml(IXmlNodeList* real) : m_list(real) {}

    /// A wrapper that its user is to release, or null for null.
    template <class Real>
    static Xml* give_out(Real* real)
    {
        if (real == nullptr) {
            return nullptr;
        }
        Xml* const made = new Xml(real);
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

    void load(const char* path) override { document().load(path); }
    IXmlNode* root() override { return give_out(document().root()); }
    void save(const char* path) override { document().save(path); }
    IXmlNode* attribute(const char* name) override
    {
        return &m_attributes.emplace_front(node().attribute(name));
    }
    std::string value() override { return node().value(); }
    void setValue(const char* text) override { node().setValue(text); }
    IXmlNodeList* selectNodes(const char* path) override
    {
        return give_out(node().selectNodes(path));
    }
    IXmlNode* selectSingleNode(const char* path) override
    {
        return give_out(node().selectSingleNode(path));
    }
    IXmlNode* item(int position) override { return give_out(list().item(position)); }
    int count() override { return list().count(); }

private:
    // The real object, once the call has not failed.
    template <class Real>
    static Real& unless_failed(const owned<Real>& real)
    {
        step("another");
        return *real;
    }
    IXmlDocument& document() { return unless_failed(m_document); }
    IXmlNode& node() { return unless_failed(m_node); }
    IXmlNodeList& list() { return unless_failed(m_list); }

    static inline Xml* s_newest = nullptr;
    Xml* m_older = nullptr;
    owned<IXmlDocument> m_document;
    owned<IXmlNode> m_node;
    owned<IXmlNodeList> m_list;
    std::forward_list<Xml> m_attributes; // never released: they go with their element
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
