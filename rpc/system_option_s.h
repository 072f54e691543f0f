// The interface object: what the host sees of the module.
#pragma once

#include "framework/owned.h"
#include "framework/rpc.h"
#include "rpc/failure_log.h"
#include "rpc/system_option.h"

#include <map>
#include <string>
#include <vector>

namespace rpc
{

/// Outputs of an operation that has none.
struct NoOutput {
};

/// Realises the interface Optimize_Option.
///
/// Per operation there is a handler, cf_ and its name: it takes the inputs from the request, runs
/// the operation of m_opt, and encodes its code and outputs into the reply block `out`. It returns
/// result::success when the block was made, whatever the operation's own code, and otherwise one of
/// the other result codes or the memory manager's code, with `out` untouched (null after
/// result::short_write).
///
/// And there is a reply operation, ret_ and its name: it encodes a code and outputs in the same way
/// and sends the reply through the command at once. It returns the command's code, or that of the
/// encoding that failed. After a success code, lists come back empty when they were encoded. The
/// strings of records are never the caller's any more, whatever it returns.
class CIfaceRealize_Optimize_Option final : public IIfaceRealize
{
public:
    using Handler = ec::EC (CIfaceRealize_Optimize_Option::*)(IRequest*, fwbase::IDataBlock*&,
                                                              ICommand*);

    /// One entry of the function table.
    struct FInfo {
        Handler handler = nullptr;
        FAtt att;
    };

    /// Fills the attributes and the table, finds the RPC service, and initialises the operations.
    /// May be called again without a release between. Returns the code of the step that failed, if
    /// any.
    ec::EC init(void* arg) override;
    /// Gives back what init obtained and empties the table.
    void release() override;
    const IAtt* iatt() const override { return &m_iatt; }
    /// Always result::success.
    ec::EC fatts(ex_std::vector<const FAtt*>& list) const override;
    /// The handler's code, or result::no_request, ::unreadable_request or ::unknown_operation.
    ec::EC call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
                     ICommand* cmd) override;

    ec::EC ret_get_optimize_sorce(ICommand* cmd, ec::EC code, rpc::int32& value);
    ec::EC ret_set_optimize_sorce(ICommand* cmd, ec::EC code);
    ec::EC ret_get_optimize_num(ICommand* cmd, ec::EC code, rpc::int32& value);
    ec::EC ret_ls_other(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items);
    ec::EC ret_ls_service(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items);
    ec::EC ret_ls_reg(ICommand* cmd, ec::EC code, std::vector<SystemOptimize_Item>& items);
    ec::EC ret_optimize_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_optimize_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_optimize_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_restore_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_restore_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_restore_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_ignore_other(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_ignore_service(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);
    ec::EC ret_ignore_reg(ICommand* cmd, ec::EC code, std::vector<unsigned int>& ids);

private:
    using Block = fwbase::IDataBlock;
    using Ids = std::vector<unsigned int>;
    using Items = std::vector<SystemOptimize_Item>;

    struct Operation {
        const char* name;
        Handler handler;
    };
    static const Operation operations[15];

    ec::EC cf_get_optimize_sorce(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_set_optimize_sorce(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_get_optimize_num(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ls_other(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ls_service(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ls_reg(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_optimize_other(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_optimize_service(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_optimize_reg(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_restore_other(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_restore_service(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_restore_reg(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ignore_other(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ignore_service(IRequest* req, Block*& out, ICommand* cmd);
    ec::EC cf_ignore_reg(IRequest* req, Block*& out, ICommand* cmd);

    // The handler shapes, by what the request holds and the reply carries. `member` is the
    // handler's name, `operation` the one of m_opt that it runs.
    ec::EC get(const char* member, ec::EC (Optimize_Option::*operation)(ICommand*, rpc::int32&),
               Block*& out, ICommand* cmd);
    ec::EC set(const char* member,
               ec::EC (Optimize_Option::*operation)(ICommand*, const rpc::int32&), IRequest* req,
               Block*& out, ICommand* cmd);
    ec::EC list(const char* member, ec::EC (Optimize_Option::*operation)(ICommand*, Items&),
                Block*& out, ICommand* cmd);
    ec::EC change(const char* member,
                  ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, Ids&), IRequest* req,
                  Block*& out, ICommand* cmd);
    ec::EC flag(const char* member,
                ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, const bool&, Ids&),
                IRequest* req, Block*& out, ICommand* cmd);

    /// Whether the reply block was made, and the memory manager's code for it or that of the
    /// failure.
    struct Encoded {
        bool made;
        ec::EC code;
    };

    /// Ends a handler: encodes the reply into `out`.
    template <class Outputs>
    ec::EC answer(const char* member, ec::EC code, Outputs& outputs, Block*& out, ICommand* cmd);
    /// Is a reply operation: encodes the reply and sends it.
    template <class Outputs>
    ec::EC send(const char* member, ICommand* cmd, ec::EC code, Outputs& outputs);
    /// The one reply encoder. `member` and `arguments` name its user in the log.
    template <class Outputs>
    Encoded encode(const char* member, const char* arguments, ICommand* cmd, ec::EC code,
                   Outputs& outputs, Block*& block);

    /// Gives back what init obtained.
    void release_objects();

    Optimize_Option m_opt;
    std::map<std::string, FInfo> m_funcs;
    IAtt m_iatt;
    IRpcService* m_rpc = nullptr; // one reference, given back by release, never by the destructor
};

} // namespace rpc

/// The module's one exported function: the one interface object, which lives until the module is
/// unloaded. Any number of calls, on any thread.
extern "C" [[gnu::visibility("default")]] rpc::IIfaceRealize* rpc_ireal_Optimize_Option();
