#include "rpc/system_option_s.h"

#include "framework/owned.h"
#include "rpc/failure_log.h"
#include "rpc/reply_outputs.h"
#include "rpc/result_codes.h"

#include <utility>

namespace rpc
{

namespace
{

constexpr std::uint32_t max_reply_size = 65520; // a reply of this size or more is not delivered
constexpr std::uint32_t header_size = 4;        // of a call block
constexpr std::uint32_t extension_length_at = 2;

/// The next parameter of a request, or null if none is left.
IParam* take(IParams& params)
{
    IParam* param = nullptr;
    params.next(param);
    return param;
}

/// The value storage of a parameter, or null if it is missing or of another type.
const void* value_of(const IParam* param, unsigned type)
{
    return param != nullptr && param->type() == type ? param->value() : nullptr;
}

/// The id list of the next parameter, borrowed from the request, or null.
const Ids* take_ids(IParams& params)
{
    const void* const storage = value_of(take(params), T_UINT32_LIST);
    return storage == nullptr ? nullptr : *static_cast<const Ids* const*>(storage);
}

using Impl = CIfaceRealize_Optimize_Option; // short, for the one-line members at the end

} // namespace

// --- Lifecycle and dispatch ---

ec::EC Impl::init(void* arg)
{
    const struct {
        const char* name;
        Handler handler;
    } operations[] = {{"get_optimize_sorce", &Impl::cf_get_optimize_sorce},
                      {"set_optimize_sorce", &Impl::cf_set_optimize_sorce},
                      {"get_optimize_num", &Impl::cf_get_optimize_num},
                      {"ls_other", &Impl::cf_ls_other},
                      {"ls_service", &Impl::cf_ls_service},
                      {"ls_reg", &Impl::cf_ls_reg},
                      {"optimize_other", &Impl::cf_optimize_other},
                      {"optimize_service", &Impl::cf_optimize_service},
                      {"optimize_reg", &Impl::cf_optimize_reg},
                      {"restore_other", &Impl::cf_restore_other},
                      {"restore_service", &Impl::cf_restore_service},
                      {"restore_reg", &Impl::cf_restore_reg},
                      {"ignore_other", &Impl::cf_ignore_other},
                      {"ignore_service", &Impl::cf_ignore_service},
                      {"ignore_reg", &Impl::cf_ignore_reg}};
    m_iatt = {"Optimize_Option", "8e926ff4-176f-439f-9349-683eefb42ech",
              "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF", // 操作系统优化 in GBK
              ""};
    for (const auto& [name, handler] : operations) {
        m_funcs[name] = FInfo{handler, FAtt{name, ""}};
    }

    release_objects(); // of an earlier init
    void* service = nullptr;
    const ec::EC found =
        fwbase::IFWBase::instance()->obj_registry()->query("obj.fws.rpc", &service);
    if (!ec::succeeded(found)) {
        return found;
    }
    m_rpc = static_cast<IRpcService*>(service);

    m_opt.m_realize = this;
    const ec::EC ready = m_opt.init(arg);
    if (!ec::succeeded(ready)) {
        release_objects();
    }
    return ready;
}

void Impl::release()
{
    try {
        release_objects();
    } catch (...) {
        m_funcs.clear();
        throw;
    }
    m_funcs.clear();
}

void Impl::release_objects()
{
    m_opt.release();
    if (IRpcService* const service = std::exchange(m_rpc, nullptr)) {
        service->release();
    }
}

ec::EC Impl::fatts(ex_std::vector<const FAtt*>& list) const
{
    list.clear();
    list.reserve(m_funcs.size());
    for (const auto& entry : m_funcs) {
        list.push_back(&entry.second.att);
    }
    return result::success;
}

ec::EC Impl::call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out, ICommand* cmd)
{
    const owned<IRequest> request(m_rpc == nullptr ? nullptr
                                                   : m_rpc->msg_factory()->new_request(""));
    if (!request) {
        return result::no_request;
    }
    const unsigned char* const data = in->data();
    const std::uint32_t size = in->size();
    const std::uint32_t body_at =
        size > extension_length_at ? header_size + data[extension_length_at] : header_size;
    if (size < body_at || request->read(data + body_at, size - body_at) == 0) {
        return result::unreadable_request;
    }
    const auto function = m_funcs.find(request->func_name());
    if (function == m_funcs.end()) {
        return result::unknown_operation;
    }
    return (this->*function->second.handler)(request.get(), out, cmd);
}

// --- Replies ---

template <class Outputs>
Impl::Encoded Impl::encode(const char* signature, ICommand* cmd, ec::EC code, Outputs& outputs,
                           Block*& block)
{
    RecordContainers containers; // outlives the reply
    IMsgFactory& factory = *m_rpc->msg_factory();
    owned<IRequest> reply(factory.new_reply(cmd, code));
    if (!reply) {
        return {false, result::no_reply};
    }
    if (ec::succeeded(code)) {
        const ec::EC added = add_outputs(factory, *reply->params(), outputs, containers);
        if (!ec::succeeded(added)) {
            return {false, added};
        }
    } else {
        discard_outputs(outputs);
    }

    const std::uint32_t size = reply->size();
    if (const SourceLocation here{this, signature, __LINE__}; size >= max_reply_size) {
        reply.reset();
        log_oversized_reply(here, size);
        return {false, result::reply_too_large};
    }
    const ec::EC made = fwbase::IFWBase::instance()->mem_manager()->new_block(block, size);
    if (!ec::succeeded(made)) {
        return {false, made};
    }
    owned<Block> unfinished(std::exchange(block, nullptr));
    if (reply->write(unfinished->buffer(), size) != size) {
        reply.reset();
        return {false, result::short_write};
    }
    unfinished->set_size(size);
    block = unfinished.release();
    return {true, made};
}

template <class Outputs>
ec::EC Impl::answer(const char* signature, ec::EC code, Outputs& outputs, Block*& out,
                    ICommand* cmd)
{
    const Encoded reply = encode(signature, cmd, code, outputs, out);
    return reply.made ? result::success : reply.code;
}

template <class Outputs>
ec::EC Impl::send(const char* signature, ICommand* cmd, ec::EC code, Outputs& outputs)
{
    Block* block = nullptr;
    const Encoded reply = encode(signature, cmd, code, outputs, block);
    if (!reply.made) {
        return reply.code;
    }
    if (ec::succeeded(code)) {
        clear_outputs(outputs);
    }
    return cmd->reply(reply.code, block);
}

ec::EC Impl::send_records(const char* signature, ICommand* cmd, ec::EC code, Items& items)
{
    const ItemStringsGuard not_handed_over(items);
    return send(signature, cmd, code, items);
}

// --- Handler shapes ---

ec::EC Impl::handle_get(const char* signature,
                        ec::EC (Optimize_Option::*operation)(ICommand*, rpc::int32&), Block*& out,
                        ICommand* cmd)
{
    rpc::int32 value = 0;
    const ec::EC code = (m_opt.*operation)(cmd, value);
    return answer(signature, code, value, out, cmd);
}

ec::EC Impl::handle_set(const char* signature,
                        ec::EC (Optimize_Option::*operation)(ICommand*, const rpc::int32&),
                        IRequest* req, Block*& out, ICommand* cmd)
{
    const void* const value = value_of(take(*req->params()), T_UINT32);
    if (value == nullptr) {
        return result::missing_parameter;
    }
    const ec::EC code = (m_opt.*operation)(cmd, rpc::int32(*static_cast<const rpc::int32*>(value)));
    NoOutput nothing;
    return answer(signature, code, nothing, out, cmd);
}

ec::EC Impl::handle_list(const char* signature,
                         ec::EC (Optimize_Option::*operation)(ICommand*, Items&), Block*& out,
                         ICommand* cmd)
{
    Items items;
    const ItemStringsGuard not_handed_over(items);
    const ec::EC code = (m_opt.*operation)(cmd, items);
    return answer(signature, code, items, out, cmd);
}

ec::EC Impl::handle_ids(const char* signature,
                        ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, Ids&),
                        IRequest* req, Block*& out, ICommand* cmd)
{
    const Ids* const ids = take_ids(*req->params());
    if (ids == nullptr) {
        return result::missing_parameter;
    }
    Ids handled;
    const ec::EC code = (m_opt.*operation)(cmd, *ids, handled);
    return answer(signature, code, handled, out, cmd);
}

ec::EC Impl::handle_flag_and_ids(const char* signature,
                                 ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&,
                                                                      const bool&, Ids&),
                                 IRequest* req, Block*& out, ICommand* cmd)
{
    IParams& params = *req->params();
    const IParam* const flag = take(params); // of any type: its first byte counts
    const void* const storage = flag == nullptr ? nullptr : flag->value();
    if (storage == nullptr) {
        return result::missing_parameter;
    }
    const bool on = *static_cast<const unsigned char*>(storage) != 0;
    const Ids* const ids = take_ids(params);
    if (ids == nullptr) {
        return result::missing_parameter;
    }
    Ids handled;
    const ec::EC code = (m_opt.*operation)(cmd, *ids, on, handled);
    return answer(signature, code, handled, out, cmd);
}

// --- Handlers ---
//
// GCC spells a signature as the definition does, and the log shows types by their full names: no
// aliases here and in the reply operations.

ec::EC Impl::cf_get_optimize_sorce(IRequest*, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_get(__PRETTY_FUNCTION__, &Optimize_Option::get_optimize_sorce, out, cmd);
}

ec::EC Impl::cf_set_optimize_sorce(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_set(__PRETTY_FUNCTION__, &Optimize_Option::set_optimize_sorce, req, out, cmd);
}

ec::EC Impl::cf_get_optimize_num(IRequest*, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_get(__PRETTY_FUNCTION__, &Optimize_Option::get_optimize_num, out, cmd);
}

ec::EC Impl::cf_ls_other(IRequest*, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_list(__PRETTY_FUNCTION__, &Optimize_Option::ls_other, out, cmd);
}

ec::EC Impl::cf_ls_service(IRequest*, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_list(__PRETTY_FUNCTION__, &Optimize_Option::ls_service, out, cmd);
}

ec::EC Impl::cf_ls_reg(IRequest*, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_list(__PRETTY_FUNCTION__, &Optimize_Option::ls_reg, out, cmd);
}

ec::EC Impl::cf_optimize_other(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::optimize_other, req, out, cmd);
}

ec::EC Impl::cf_optimize_service(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::optimize_service, req, out, cmd);
}

ec::EC Impl::cf_optimize_reg(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::optimize_reg, req, out, cmd);
}

ec::EC Impl::cf_restore_other(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::restore_other, req, out, cmd);
}

ec::EC Impl::cf_restore_service(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::restore_service, req, out, cmd);
}

ec::EC Impl::cf_restore_reg(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_ids(__PRETTY_FUNCTION__, &Optimize_Option::restore_reg, req, out, cmd);
}

ec::EC Impl::cf_ignore_other(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_flag_and_ids(__PRETTY_FUNCTION__, &Optimize_Option::ignore_other, req, out, cmd);
}

ec::EC Impl::cf_ignore_service(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_flag_and_ids(__PRETTY_FUNCTION__, &Optimize_Option::ignore_service, req, out,
                               cmd);
}

ec::EC Impl::cf_ignore_reg(IRequest* req, fwbase::IDataBlock*& out, ICommand* cmd)
{
    return handle_flag_and_ids(__PRETTY_FUNCTION__, &Optimize_Option::ignore_reg, req, out, cmd);
}

// --- Reply operations ---

ec::EC Impl::ret_get_optimize_sorce(ICommand* cmd, ec::EC code, rpc::int32& value)
{
    return send(__PRETTY_FUNCTION__, cmd, code, value);
}

ec::EC Impl::ret_set_optimize_sorce(ICommand* cmd, ec::EC code)
{
    NoOutput nothing;
    return send(__PRETTY_FUNCTION__, cmd, code, nothing);
}

ec::EC Impl::ret_get_optimize_num(ICommand* cmd, ec::EC code, rpc::int32& value)
{
    return send(__PRETTY_FUNCTION__, cmd, code, value);
}

ec::EC Impl::ret_ls_other(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items)
{
    return send_records(__PRETTY_FUNCTION__, cmd, code, items);
}

ec::EC Impl::ret_ls_service(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items)
{
    return send_records(__PRETTY_FUNCTION__, cmd, code, items);
}

ec::EC Impl::ret_ls_reg(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items)
{
    return send_records(__PRETTY_FUNCTION__, cmd, code, items);
}

ec::EC Impl::ret_optimize_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_optimize_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_optimize_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_restore_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_restore_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_restore_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids)
{
    return send(__PRETTY_FUNCTION__, cmd, code, ids);
}

} // namespace rpc

rpc::IIfaceRealize* rpc_ireal_Optimize_Option()
{
    static rpc::CIfaceRealize_Optimize_Option object;
    return &object;
}
