#include "transaction/answer.h"

#include "framework/xml.h"
#include "transaction/lock.h"
#include "transaction/messages.h"
#include "transaction/transaction.h"

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <vector>

namespace transaction
{

namespace
{

constexpr ec::EC answered = 0x840C0000; // what the module returns with a reply

/// Receives the replies that the module sends, and keeps the services in them.
class Collector final : public rpc::ICommand
{
public:
    explicit Collector(rpc::IMsgFactory& factory) : m_factory(factory) {}

    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> owner(block);
        return read_reply(m_factory, *block, m_replies) ? code : 0;
    }

    std::vector<Reply> m_replies;

private:
    rpc::IMsgFactory& m_factory;
};

/// Throws std::runtime_error unless the module's commands can be found and report how they ended.
/// Without chkconfig the module's listing would be empty, which is no failure to it. Only for the
/// holder of the lock: the module changes the environment during a call.
void require_commands()
{
    const int status = std::system("test -x \"$(command -v chkconfig)\"");
    if (status == -1) {
        throw std::runtime_error("commands do not report how they end: SIGCHLD is ignored, or "
                                 "another thread waits for all children");
    }
    if (status != 0) {
        throw std::runtime_error("no chkconfig on the search path");
    }
}

/// Runs a part of a call. Returns false, and tells why, if the call is refused.
template <class Part>
bool is_done(const Say& say, Part part)
{
    try {
        part();
        return true;
    } catch (const std::runtime_error& error) {
        say(error.what());
    } catch (const CLiteXmlException& error) {
        say(error.what());
    }
    return false;
}

/// A client's call on services.
class ServiceCall
{
public:
    /// Borrows all of them.
    ServiceCall(rpc::IIfaceRealize& module, rpc::IMsgFactory& factory, const Request& request,
                const ReplyMaker& maker, const Say& say)
        : m_module(module), m_factory(factory), m_request(request), m_maker(maker), m_say(say)
    {
    }

    /// Makes the call and returns the item replies. Throws as Transaction does.
    std::vector<ReplyBlock> run(const std::string& configuration, const Waiting& waiting)
    {
        const bool lists = m_request.operation == "ls_service";
        std::vector<Service> services;
        std::vector<Outcome> outcomes;
        {
            Transaction transaction(
                configuration,
                [this](const std::string& operation, bool flag, const Ids& ids) {
                    return call(operation, flag, ids);
                },
                m_say, waiting);
            require_commands();
            if (lists) {
                services = transaction.list();
            } else if (m_request.operation == "ignore_service") {
                outcomes = transaction.ignore(m_request.ids, m_request.flag);
            } else {
                outcomes = transaction.switch_services(m_request.ids,
                                                       m_request.operation == "restore_service");
            }
        } // gives the lock back before messages are printed, which may take long
        return lists ? items(services) : items(outcomes);
    }

    /// Whether the module reported success for the requested operation.
    bool has_succeeded() const { return m_has_succeeded; }

private:
    std::vector<Reply> call(const std::string& operation, bool flag, const Ids& ids)
    {
        const owned<fwbase::IDataBlock> in = make_call_block(m_factory, operation, flag, ids);
        Collector collector(m_factory);
        fwbase::IDataBlock* block = nullptr;
        m_module.call_func(in.get(), block, &collector);
        const owned<fwbase::IDataBlock> out(block);
        if (!out || !read_reply(m_factory, *out, collector.m_replies)) {
            throw std::runtime_error(operation + (out ? " has failed" : ": no reply"));
        }
        m_has_succeeded = m_has_succeeded || operation == m_request.operation;
        return std::move(collector.m_replies);
    }

    std::vector<ReplyBlock> items(const std::vector<Service>& services) const
    {
        std::vector<ReplyBlock> blocks;
        for (const Service& each : services) {
            blocks.push_back(m_maker.service(&each));
            if (!blocks.back().block) {
                blocks.pop_back();
                m_say(each.entry.name + " (" + std::to_string(each.entry.id) +
                      ") is too long to be sent");
            }
        }
        return blocks;
    }

    /// The ids of the services that were handled. Tells what became of the others.
    std::vector<ReplyBlock> items(const std::vector<Outcome>& outcomes) const
    {
        std::vector<ReplyBlock> blocks;
        for (const Outcome& each : outcomes) {
            if (each.kind == Outcome::done) {
                blocks.push_back(m_maker.ids({each.id}));
            } else {
                m_say(sentence_of(each));
            }
        }
        return blocks;
    }

    rpc::IIfaceRealize& m_module;
    rpc::IMsgFactory& m_factory;
    const Request& m_request;
    const ReplyMaker& m_maker;
    const Say& m_say;
    bool m_has_succeeded = false;
};

owned<rpc::IRpcService> rpc_service()
{
    void* service = nullptr;
    if (!ec::succeeded(
            fwbase::IFWBase::instance()->obj_registry()->query("obj.fws.rpc", &service))) {
        throw std::runtime_error("the framework has no RPC service");
    }
    return owned<rpc::IRpcService>(static_cast<rpc::IRpcService*>(service));
}

} // namespace

ec::EC answer(rpc::IIfaceRealize& module, const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
              rpc::ICommand* command, const std::string& configuration, const Say& say,
              const Waiting& waiting)
{
    const owned<rpc::IRpcService> rpc = rpc_service();
    rpc::IMsgFactory& factory = *rpc->msg_factory();
    const Request request = read_request(factory, *in);
    const ReplyMaker maker(factory, command);
    if (!request.is_on_services) {
        std::optional<Lock> lock;
        const bool sets = request.operation == "set_optimize_sorce";
        if (sets &&
            !is_done(say, [&] { lock.emplace(configuration, say, Lock::Create::yes, waiting); })) {
            out = maker.failure().block.release();
            return answered;
        }
        return module.call_func(in, out, command);
    }

    ServiceCall call(module, factory, request, maker, say);
    std::vector<ReplyBlock> items;
    const bool is_made = is_done(say, [&] { items = call.run(configuration, waiting); });
    ReplyBlock last = !is_made || !call.has_succeeded()   ? maker.failure()
                      : request.operation == "ls_service" ? maker.service(nullptr)
                                                          : maker.ids({});
    for (ReplyBlock& item : items) { // nothing is locked any more
        command->reply(item.code, item.block.release());
    }
    out = last.block.release();
    return answered;
}

} // namespace transaction
