#include "rpc/system_option_s.h"

#include "rpc/result_codes.h"

#include <type_traits>
#include <utility>

namespace rpc
{

namespace
{

constexpr std::uint32_t max_reply_size = 65520; // a reply of this size or more is never delivered
constexpr std::uint32_t header_size = 4;        // of a call block
constexpr std::uint32_t extension_length_at = 2;

using Ids = std::vector<unsigned int>;
using Items = std::vector<SystemOptimize_Item>;

/// The next parameter of a request, or null when none is left.
IParam* take(IParams& params)
{
    IParam* param = nullptr;
    params.next(param);
    return param;
}

/// The value storage of a parameter that is there and of that type, or null.
const void* value_of(const IParam* param, unsigned type)
{
    return param != nullptr && param->type() == type ? param->value() : nullptr;
}

/// The next parameter's id list, borrowed from the request, or null.
const Ids* take_ids(IParams& params)
{
    const void* const storage = value_of(take(params), T_UINT32_LIST);
    return storage == nullptr ? nullptr : *static_cast<const Ids* const*>(storage);
}

/// The containers of a record list: owned here until a parameter has taken them over, and read by
/// that parameter until the reply has been serialised.
struct Containers {
    std::vector<IParams*> list;
    bool taken = false;

    Containers() = default;
    Containers(const Containers&) = delete;
    Containers& operator=(const Containers&) = delete;
    ~Containers()
    {
        for (std::size_t i = 0; !taken && i < list.size(); ++i) {
            list[i]->release();
        }
    }
};

/// Makes parameters and adds them to a list; `made` turns false at the first that cannot be made,
/// and nothing is added any more.
class ParamAdder
{
public:
    ParamAdder(IMsgFactory& factory, IParams& params) : m_factory(factory), m_params(params) {}

    /// The value must stay alive until the message has been serialised.
    ParamAdder& borrowed(unsigned type, const void* value)
    {
        if (m_made) {
            add(m_factory.new_param(type, value, 0));
        }
        return *this;
    }

    /// Hands the string over; the pointer is null when the parameter has taken it.
    ParamAdder& handed_over(std::string*& text)
    {
        if (m_made) {
            IParam* const param = m_factory.new_param(T_STRING, text, 1);
            if (param != nullptr) {
                text = nullptr; // before add(), which may throw and then has freed the string
            }
            add(param);
        }
        return *this;
    }

    bool made() const { return m_made; }

private:
    void add(IParam* param)
    {
        m_made = param != nullptr;
        if (m_made) {
            m_params.add(param);
        }
    }

    IMsgFactory& m_factory;
    IParams& m_params;
    bool m_made = true;
};

// Adding the outputs to a reply, one overload per reply shape: result::success, or the code of what
// could not be made.

ec::EC add_outputs(IMsgFactory&, IParams&, NoOutput&, Containers&)
{
    return result::success;
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, rpc::int32& value, Containers&)
{
    return ParamAdder(factory, params).borrowed(T_UINT32, &value).made() ? result::success
                                                                         : result::no_parameter;
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, Ids& ids, Containers&)
{
    return ParamAdder(factory, params).borrowed(T_UINT32_LIST, &ids).made() ? result::success
                                                                            : result::no_parameter;
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, Items& items, Containers& containers)
{
    containers.list.reserve(items.size());
    for (SystemOptimize_Item& item : items) {
        IParams* const record = factory.new_record();
        if (record == nullptr) {
            return result::no_record;
        }
        containers.list.push_back(record);
        if (!ParamAdder(factory, *record)
                 .borrowed(T_UINT32, &item.id)
                 .handed_over(item.name)
                 .handed_over(item.desc)
                 .borrowed(T_UINT32, &item.op)
                 .made()) {
            return result::no_parameter;
        }
    }
    IParam* const records = factory.new_param(T_RECORD_LIST, &containers.list, 0);
    if (records == nullptr) {
        return result::no_parameter;
    }
    containers.taken = true;
    params.add(records);
    return result::success;
}

/// Frees what the outputs own and no parameter has taken over: the strings of records.
template <class Outputs>
struct Leftovers {
    explicit Leftovers(Outputs&) {}
};
template <>
struct Leftovers<Items> : ItemStringsGuard {
    using ItemStringsGuard::ItemStringsGuard;
};

// Argument types of the members, as the log shows them.
constexpr const char* handler_arguments = "rpc::IRequest*, fwbase::IDataBlock*&, rpc::ICommand*";
template <class Outputs>
constexpr const char* reply_arguments = nullptr;
template <>
constexpr const char* reply_arguments<NoOutput> = "rpc::ICommand*, ec::EC";
template <>
constexpr const char* reply_arguments<rpc::int32> = "rpc::ICommand*, ec::EC, rpc::int32&";
template <>
constexpr const char* reply_arguments<Ids> = "rpc::ICommand*, ec::EC, std::vector<unsigned int>&";
template <>
constexpr const char* reply_arguments<Items> =
    "rpc::ICommand*, ec::EC, std::vector<rpc::SystemOptimize_Item>&";

using Impl = CIfaceRealize_Optimize_Option; // short, for the one-line members at the end

} // namespace

// --- Lifecycle and dispatch ---

ec::EC Impl::init(void* arg)
{
    m_iatt = {"Optimize_Option", "8e926ff4-176f-439f-9349-683eefb42ech",
              "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF", // 操作系统优化 in GBK
              ""};
    for (const Operation& operation : operations) {
        m_funcs[operation.name] = FInfo{operation.handler, FAtt{operation.name, ""}};
    }

    release_objects(); // those of an earlier init
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
    release_objects();
    m_funcs.clear();
}

void Impl::release_objects()
{
    m_opt.release();
    if (m_rpc != nullptr) {
        m_rpc->release();
        m_rpc = nullptr;
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
    const owned<IRequest> request(m_rpc->msg_factory()->new_request(""));
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
Impl::Encoded Impl::encode(const char* member, const char* arguments, ICommand* cmd, ec::EC code,
                           Outputs& outputs, Block*& block)
{
    [[maybe_unused]] const Leftovers<Outputs> leftovers(outputs);
    Containers containers;
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
    } else if constexpr (std::is_same_v<Outputs, Items>) {
        ItemStringsGuard::free_strings(outputs);
        outputs.clear();
    }

    const std::uint32_t size = reply->size();
    const FailurePlace place{this, member, arguments, __LINE__ + 1}; // of the check
    if (size >= max_reply_size) {
        reply.reset();
        log_oversized_reply(place, size);
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
ec::EC Impl::answer(const char* member, ec::EC code, Outputs& outputs, Block*& out, ICommand* cmd)
{
    const Encoded reply = encode(member, handler_arguments, cmd, code, outputs, out);
    return reply.made ? result::success : reply.code;
}

template <class Outputs>
ec::EC Impl::send(const char* member, ICommand* cmd, ec::EC code, Outputs& outputs)
{
    Block* block = nullptr;
    const Encoded reply = encode(member, reply_arguments<Outputs>, cmd, code, outputs, block);
    if (!reply.made) {
        return reply.code;
    }
    if constexpr (std::is_same_v<Outputs, Ids> || std::is_same_v<Outputs, Items>) {
        if (ec::succeeded(code)) {
            outputs.clear();
        }
    }
    return cmd->reply(reply.code, block);
}

// --- Handler shapes ---

ec::EC Impl::get(const char* member, ec::EC (Optimize_Option::*operation)(ICommand*, rpc::int32&),
                 Block*& out, ICommand* cmd)
{
    rpc::int32 value = 0;
    const ec::EC code = (m_opt.*operation)(cmd, value);
    return answer(member, code, value, out, cmd);
}

ec::EC Impl::set(const char* member,
                 ec::EC (Optimize_Option::*operation)(ICommand*, const rpc::int32&), IRequest* req,
                 Block*& out, ICommand* cmd)
{
    const void* const value = value_of(take(*req->params()), T_UINT32);
    if (value == nullptr) {
        return result::missing_parameter;
    }
    const ec::EC code = (m_opt.*operation)(cmd, rpc::int32(*static_cast<const rpc::int32*>(value)));
    NoOutput nothing;
    return answer(member, code, nothing, out, cmd);
}

ec::EC Impl::list(const char* member, ec::EC (Optimize_Option::*operation)(ICommand*, Items&),
                  Block*& out, ICommand* cmd)
{
    Items items;
    const ec::EC code = (m_opt.*operation)(cmd, items);
    return answer(member, code, items, out, cmd);
}

ec::EC Impl::change(const char* member,
                    ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, Ids&),
                    IRequest* req, Block*& out, ICommand* cmd)
{
    const Ids* const ids = take_ids(*req->params());
    if (ids == nullptr) {
        return result::missing_parameter;
    }
    Ids handled;
    const ec::EC code = (m_opt.*operation)(cmd, *ids, handled);
    return answer(member, code, handled, out, cmd);
}

ec::EC Impl::flag(const char* member,
                  ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, const bool&, Ids&),
                  IRequest* req, Block*& out, ICommand* cmd)
{
    IParams& params = *req->params();
    const IParam* const flag_param = take(params);
    const void* const storage = flag_param == nullptr ? nullptr : flag_param->value();
    const Ids* const ids = take_ids(params);
    if (storage == nullptr || ids == nullptr) {
        return result::missing_parameter;
    }
    const bool on = *static_cast<const unsigned char*>(storage) != 0;
    Ids handled;
    const ec::EC code = (m_opt.*operation)(cmd, *ids, on, handled);
    return answer(member, code, handled, out, cmd);
}

// --- Handlers ---

ec::EC Impl::cf_get_optimize_sorce(IRequest*, Block*& out, ICommand* cmd)
{
    return get(__func__, &Optimize_Option::get_optimize_sorce, out, cmd);
}

ec::EC Impl::cf_set_optimize_sorce(IRequest* req, Block*& out, ICommand* cmd)
{
    return set(__func__, &Optimize_Option::set_optimize_sorce, req, out, cmd);
}

ec::EC Impl::cf_get_optimize_num(IRequest*, Block*& out, ICommand* cmd)
{
    return get(__func__, &Optimize_Option::get_optimize_num, out, cmd);
}

ec::EC Impl::cf_ls_other(IRequest*, Block*& out, ICommand* cmd)
{
    return list(__func__, &Optimize_Option::ls_other, out, cmd);
}

ec::EC Impl::cf_ls_service(IRequest*, Block*& out, ICommand* cmd)
{
    return list(__func__, &Optimize_Option::ls_service, out, cmd);
}

ec::EC Impl::cf_ls_reg(IRequest*, Block*& out, ICommand* cmd)
{
    return list(__func__, &Optimize_Option::ls_reg, out, cmd);
}

ec::EC Impl::cf_optimize_other(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::optimize_other, req, out, cmd);
}

ec::EC Impl::cf_optimize_service(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::optimize_service, req, out, cmd);
}

ec::EC Impl::cf_optimize_reg(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::optimize_reg, req, out, cmd);
}

ec::EC Impl::cf_restore_other(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::restore_other, req, out, cmd);
}

ec::EC Impl::cf_restore_service(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::restore_service, req, out, cmd);
}

ec::EC Impl::cf_restore_reg(IRequest* req, Block*& out, ICommand* cmd)
{
    return change(__func__, &Optimize_Option::restore_reg, req, out, cmd);
}

ec::EC Impl::cf_ignore_other(IRequest* req, Block*& out, ICommand* cmd)
{
    return flag(__func__, &Optimize_Option::ignore_other, req, out, cmd);
}

ec::EC Impl::cf_ignore_service(IRequest* req, Block*& out, ICommand* cmd)
{
    return flag(__func__, &Optimize_Option::ignore_service, req, out, cmd);
}

ec::EC Impl::cf_ignore_reg(IRequest* req, Block*& out, ICommand* cmd)
{
    return flag(__func__, &Optimize_Option::ignore_reg, req, out, cmd);
}

// --- Reply operations ---

ec::EC Impl::ret_get_optimize_sorce(ICommand* cmd, ec::EC code, rpc::int32& value)
{
    return send(__func__, cmd, code, value);
}

ec::EC Impl::ret_set_optimize_sorce(ICommand* cmd, ec::EC code)
{
    NoOutput nothing;
    return send(__func__, cmd, code, nothing);
}

ec::EC Impl::ret_get_optimize_num(ICommand* cmd, ec::EC code, rpc::int32& value)
{
    return send(__func__, cmd, code, value);
}

ec::EC Impl::ret_ls_other(ICommand* cmd, ec::EC code, Items& items)
{
    return send(__func__, cmd, code, items);
}

ec::EC Impl::ret_ls_service(ICommand* cmd, ec::EC code, Items& items)
{
    return send(__func__, cmd, code, items);
}

ec::EC Impl::ret_ls_reg(ICommand* cmd, ec::EC code, Items& items)
{
    return send(__func__, cmd, code, items);
}

ec::EC Impl::ret_optimize_other(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_optimize_service(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_optimize_reg(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_restore_other(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_restore_service(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_restore_reg(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_other(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_service(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

ec::EC Impl::ret_ignore_reg(ICommand* cmd, ec::EC code, Ids& ids)
{
    return send(__func__, cmd, code, ids);
}

// In the order of registration; the function table itself is ordered by name.
const Impl::Operation Impl::operations[15] = {
    {"get_optimize_sorce", &Impl::cf_get_optimize_sorce},
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
    {"ignore_reg", &Impl::cf_ignore_reg},
};

} // namespace rpc

rpc::IIfaceRealize* rpc_ireal_Optimize_Option()
{
    static rpc::CIfaceRealize_Optimize_Option object;
    return &object;
}
