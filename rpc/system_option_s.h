// The interface object: what the host sees of the module.
#pragma once

#include "rpc/entry.h"
#include "rpc/system_option.h"

#include <map>
#include <string>

namespace rpc
{

/// Realises the interface Optimize_Option.
///
/// Each operation has a handler, cf_ and its name. The handler takes the inputs from the request,
/// runs the operation of m_opt, and encodes the operation's code and outputs into the reply block
/// `out`, which the caller then owns. It returns result::success if the block was made, whatever
/// the operation's own code. Otherwise it returns another result code or the memory manager's code
/// and leaves `out` as it was (null after result::short_write).
///
/// Each operation also has a reply operation, ret_ and its name. It encodes a code and outputs in
/// the same way and sends the reply through the command at once. It returns the command's code, or
/// the code of a failed encoding. Lists come back empty once they are encoded in a reply with a
/// success code. Reply operations always take ownership of the strings of records, even on failure.
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
    /// May be called again without a release in between. Returns the code of the first step that
    /// fails.
    ec::EC init(void* arg) override;
    /// Gives back what init obtained and empties the table. Gives the RPC service back once, even
    /// if that throws.
    void release() override;
    const IAtt* iatt() const override { return &m_iatt; }
    /// Always returns result::success.
    ec::EC fatts(ex_std::vector<const FAtt*>& list) const override;
    /// Returns the handler's code, or result::no_request (also while the object is not
    /// initialised), ::unreadable_request or ::unknown_operation.
    ec::EC call_func(const fwbase::IDataBlock* in, fwbase::IDataBlock*& out,
                     ICommand* cmd) override;

    ec::EC ret_get_optimize_sorce(ICommand* cmd, ec::EC code, rpc::int32& value);
    ec::EC ret_set_optimize_sorce(ICommand* cmd, ec::EC code);
    ec::EC ret_get_optimize_num(ICommand* cmd, ec::EC code, rpc::int32& value);
    ec::EC ret_ls_other(ICommand* cmd, ec::EC code, Items& items);
    ec::EC ret_ls_service(ICommand* cmd, ec::EC code, Items& items);
    ec::EC ret_ls_reg(ICommand* cmd, ec::EC code, Items& items);
    ec::EC ret_optimize_other(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_optimize_service(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_optimize_reg(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_restore_other(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_restore_service(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_restore_reg(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_ignore_other(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_ignore_service(ICommand* cmd, ec::EC code, Ids& ids);
    ec::EC ret_ignore_reg(ICommand* cmd, ec::EC code, Ids& ids);

private:
    using Block = fwbase::IDataBlock;

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

    // The handler shapes, by what the request holds and what the reply carries. `signature` is that
    // of the handler, for the log.

    /// No input; replies with a value.
    ec::EC handle_get(const char* signature,
                      ec::EC (Optimize_Option::*operation)(ICommand*, rpc::int32&), Block*& out,
                      ICommand* cmd);
    /// Takes a value; replies without outputs.
    ec::EC handle_set(const char* signature,
                      ec::EC (Optimize_Option::*operation)(ICommand*, const rpc::int32&),
                      IRequest* req, Block*& out, ICommand* cmd);
    /// No input; replies with records.
    ec::EC handle_list(const char* signature,
                       ec::EC (Optimize_Option::*operation)(ICommand*, Items&), Block*& out,
                       ICommand* cmd);
    /// Takes ids; replies with ids.
    ec::EC handle_ids(const char* signature,
                      ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&, Ids&),
                      IRequest* req, Block*& out, ICommand* cmd);
    /// Takes a flag, then ids; replies with ids.
    ec::EC handle_flag_and_ids(const char* signature,
                               ec::EC (Optimize_Option::*operation)(ICommand*, const Ids&,
                                                                    const bool&, Ids&),
                               IRequest* req, Block*& out, ICommand* cmd);

    /// Whether the reply block was made, and the memory manager's code for it or the code of the
    /// failure.
    struct Encoded {
        bool made;
        ec::EC code;
    };

    /// The one reply encoder. `signature` is that of its user, for the log.
    template <class Outputs>
    Encoded encode(const char* signature, ICommand* cmd, ec::EC code, Outputs& outputs,
                   Block*& block);
    /// The end of every handler: encodes the reply into `out`.
    template <class Outputs>
    ec::EC answer(const char* signature, ec::EC code, Outputs& outputs, Block*& out, ICommand* cmd);
    /// The body of every reply operation: encodes the reply and sends it.
    template <class Outputs>
    ec::EC send(const char* signature, ICommand* cmd, ec::EC code, Outputs& outputs);
    /// The same for records, whose strings it always frees or hands over.
    ec::EC send_records(const char* signature, ICommand* cmd, ec::EC code, Items& items);

    /// Gives back what init obtained.
    void release_objects();

    Optimize_Option m_opt;
    std::map<std::string, FInfo> m_funcs;
    IAtt m_iatt;
    /// A reference while the object is initialised. The destructor does not give it back.
    IRpcService* m_rpc = nullptr;
};

} // namespace rpc
