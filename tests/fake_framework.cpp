#include "tests/fake_framework.h"

#include "framework/xml.h"
#include "host/framework.h"
#include "host/xml_document.h"

#include <memory>

namespace fake
{

Faults rpc_faults;
Faults xml_faults;
std::vector<std::string> xml_calls;
std::vector<LogEntry> log_entries;

ec::EC Command::reply(ec::EC code, fwbase::IDataBlock* block)
{
    const owned<fwbase::IDataBlock> taken(block);
    ++attempts;
    if (rpc_faults.strike("reply")) {
        return 0;
    }
    replies.emplace_back(new host::Message(""));
    return replies.back()->read(taken->data(), taken->size()) != 0 ? code : 0;
}

namespace
{

class Request final : public rpc::IRequest
{
public:
    explicit Request(rpc::IRequest* real) : m_real(real) {}

    std::uint32_t write(unsigned char* buffer, std::uint32_t size) override
    {
        return rpc_faults.strike("write") ? size - 1 : m_real->write(buffer, size);
    }
    int read(const unsigned char* data, std::uint32_t size) override
    {
        return rpc_faults.strike("read") ? 0 : m_real->read(data, size);
    }
    std::uint32_t size() override { return m_real->size(); }
    void release() override { delete this; }
    const char* func_name() override { return m_real->func_name(); }
    rpc::IParams* params() override { return m_real->params(); }

private:
    owned<rpc::IRequest> m_real;
};

class Factory final : public rpc::IMsgFactory
{
public:
    rpc::IRequest* new_request(const char* name) override
    {
        return rpc_faults.strike("new_request") ? nullptr : new Request(m_real.new_request(name));
    }
    rpc::IRequest* new_reply(rpc::ICommand* command, ec::EC code) override
    {
        return rpc_faults.strike("new_reply") ? nullptr
                                              : new Request(m_real.new_reply(command, code));
    }
    rpc::IParams* new_record() override
    {
        return rpc_faults.strike("new_record") ? nullptr : m_real.new_record();
    }
    rpc::IParam* new_param(unsigned type, const void* value, int hand_over) override
    {
        return rpc_faults.strike("new_param") ? nullptr : m_real.new_param(type, value, hand_over);
    }

private:
    host::MsgFactory m_real;
};

class Service final : public rpc::IRpcService
{
public:
    explicit Service(void* real) : m_real(static_cast<rpc::IRpcService*>(real)) {}
    rpc::IMsgFactory* msg_factory() override { return &m_factory; }
    void release() override { delete this; }

private:
    owned<rpc::IRpcService> m_real;
    Factory m_factory;
};

class Framework final : public fwbase::IFWBase,
                        fwbase::IRunLog,
                        fwbase::IObjRegistry,
                        fwbase::IMemManager
{
public:
    fwbase::IRunLog* run_log() override { return this; }
    fwbase::IObjRegistry* obj_registry() override { return this; }
    fwbase::IMemManager* mem_manager() override { return this; }

private:
    void log(std::uint32_t type, const char* text, const char* where) override
    {
        log_entries.push_back({type, text, where == nullptr ? "(null)" : where});
    }
    ec::EC query(const char* name, void** object) override
    {
        if (rpc_faults.strike("query")) {
            return not_found;
        }
        void* real = nullptr;
        const ec::EC code = host::framework().obj_registry()->query(name, &real);
        if (ec::succeeded(code)) {
            *object = static_cast<rpc::IRpcService*>(new Service(real));
        }
        return code;
    }
    ec::EC new_block(fwbase::IDataBlock*& block, std::uint32_t size) override
    {
        return rpc_faults.strike("new_block")
                   ? no_block
                   : host::framework().mem_manager()->new_block(block, size);
    }
    void* alloc(std::size_t size) override { return host::framework().mem_manager()->alloc(size); }
    void free(void* storage) override { host::framework().mem_manager()->free(storage); }
};

// --- XML ---

void xml_step(const std::string& call)
{
    const bool fails = xml_faults.strike(call.c_str());
    xml_calls.push_back(fails ? call + "!" : call);
    if (fails) {
        throw CLiteXmlException("fake", 0, call);
    }
}

template <class Interface>
class Wrapper : public Interface
{
public:
    Wrapper(Interface* real, const char* what, bool is_owned = true)
        : m_real(real), m_what(what), m_owned(is_owned)
    {
    }
    void release() override
    {
        const std::string call = std::string("release ") + m_what;
        delete this;
        xml_step(call);
    }

protected:
    virtual ~Wrapper()
    {
        if (m_owned) {
            m_real->release();
        }
    }
    Interface* m_real;

private:
    const char* m_what;
    bool m_owned;
};

class Node final : public Wrapper<IXmlNode>
{
public:
    using Wrapper::Wrapper;
    ~Node() override = default;

    IXmlNode* attribute(const char* name) override
    {
        xml_step("attribute");
        m_attributes.push_back(std::make_unique<Node>(m_real->attribute(name), "attribute", false));
        return m_attributes.back().get();
    }
    std::string value() override
    {
        xml_step("value");
        return m_real->value();
    }
    void setValue(const char* text) override
    {
        xml_step("setValue");
        m_real->setValue(text);
    }
    IXmlNodeList* selectNodes(const char* xpath) override;
    IXmlNode* selectSingleNode(const char* xpath) override
    {
        xml_step("selectSingleNode");
        IXmlNode* const node = m_real->selectSingleNode(xpath);
        return node == nullptr ? nullptr : new Node(node, "node");
    }

private:
    std::vector<std::unique_ptr<Node>> m_attributes;
};

class List final : public Wrapper<IXmlNodeList>
{
public:
    using Wrapper::Wrapper;
    IXmlNode* item(int position) override
    {
        xml_step("item");
        return new Node(m_real->item(position), "item");
    }
    int count() override
    {
        xml_step("count");
        return m_real->count();
    }
};

IXmlNodeList* Node::selectNodes(const char* xpath)
{
    xml_step("selectNodes");
    return new List(m_real->selectNodes(xpath), "list");
}

class Document final : public Wrapper<IXmlDocument>
{
public:
    using Wrapper::Wrapper;
    void load(const char* path) override
    {
        xml_step("load");
        m_real->load(path);
    }
    IXmlNode* root() override
    {
        xml_step("root");
        return new Node(m_real->root(), "root");
    }
    void save(const char* path) override
    {
        xml_step("save");
        m_real->save(path);
    }
};

} // namespace
} // namespace fake

namespace fwbase
{

std::uint32_t IRunLog::ms_type_sign = 8;

IFWBase* IFWBase::instance()
{
    static fake::Framework framework;
    return &framework;
}

} // namespace fwbase

IXmlDocument* newXmlDocument()
{
    fake::xml_step("newXmlDocument");
    return new fake::Document(host::new_xml_document(), "document");
}
