// The operations of the interface, on plain values.
#pragma once

#include "conf/conf.h"
#include "framework/rpc.h"
#include "conf/system_optimize_item.h"
#include "service/redhat_service.h"

#include <memory>
#include <vector>

namespace rpc
{

class CIfaceRealize_Optimize_Option;

/// Carries the operations. The interface object contains the only one: it writes m_realize, calls
/// init, runs operations, and calls release.
///
/// Every operation returns operation_result::success or ::failure and sets its out value only on
/// success. Operations may run on several threads at once; the four service operations then wait
/// for one another while they look at the machine and record what they did, but not while they
/// reply.
///
/// Lists are not returned but streamed: the four service operations send one reply per item through
/// the interface object, each with an out list of that one item, and leave the out list empty. A
/// reply that cannot be sent does not stop the others.
class Optimize_Option
{
public:
    /// The containing interface object; not owned.
    CIfaceRealize_Optimize_Option* m_realize = nullptr;
    std::unique_ptr<ILinuxSystemService> m_service;

    /// Creates the service object; `arg` is not used.
    ec::EC init(void* arg);
    /// Destroys the service object, if there is one.
    void release();

    ec::EC get_optimize_num(ICommand* cmd, rpc::int32& count);
    ec::EC get_optimize_sorce(ICommand* cmd, rpc::int32& score);
    ec::EC set_optimize_sorce(ICommand* cmd, const rpc::int32& score);

    /// Streams the configured services that are on the machine, after reconciling the configuration
    /// with it.
    ec::EC ls_service(ICommand* cmd, std::vector<SystemOptimize_Item>& items);

    // The operations below stream the ids that they handled. An id that is not configured, whose
    // service is in another state, or whose command failed is dropped without a word.

    /// Switches running services off.
    ec::EC optimize_service(ICommand* cmd, const std::vector<unsigned int>& ids,
                            std::vector<unsigned int>& out);
    /// Switches services that optimize_service switched off back on.
    ec::EC restore_service(ICommand* cmd, const std::vector<unsigned int>& ids,
                           std::vector<unsigned int>& out);
    /// Marks running services as ignored, or takes the mark away.
    ec::EC ignore_service(ICommand* cmd, const std::vector<unsigned int>& ids, const bool& ignore,
                          std::vector<unsigned int>& out);

    /// Handles those of `ids` whose entry is in the state `op` and appends them to `done`, in the
    /// order of `ids`: with `checkOnly` nothing else happens; otherwise OPT_NONE is switched off,
    /// OPT_OPTIMIZED back on, any other state dropped. False when the configuration cannot be read.
    bool SetOSService(const std::vector<unsigned int>& ids, std::vector<int>& done, bool checkOnly,
                      OptimizeOperate op);

    // Operations of the interface that have no work to do on this kind of machine: they succeed and
    // touch nothing.

    ec::EC ls_reg(ICommand* cmd, std::vector<SystemOptimize_Item>& items);
    ec::EC ls_other(ICommand* cmd, std::vector<SystemOptimize_Item>& items);
    ec::EC optimize_reg(ICommand* cmd, const std::vector<unsigned int>& ids,
                        std::vector<unsigned int>& out);
    ec::EC optimize_other(ICommand* cmd, const std::vector<unsigned int>& ids,
                          std::vector<unsigned int>& out);
    ec::EC restore_reg(ICommand* cmd, const std::vector<unsigned int>& ids,
                       std::vector<unsigned int>& out);
    ec::EC restore_other(ICommand* cmd, const std::vector<unsigned int>& ids,
                         std::vector<unsigned int>& out);
    ec::EC ignore_reg(ICommand* cmd, const std::vector<unsigned int>& ids, const bool& ignore,
                      std::vector<unsigned int>& out);
    ec::EC ignore_other(ICommand* cmd, const std::vector<unsigned int>& ids, const bool& ignore,
                        std::vector<unsigned int>& out);

private:
    using IdReply = ec::EC (CIfaceRealize_Optimize_Option::*)(ICommand*, ec::EC,
                                                              std::vector<unsigned int>&);

    /// What sets the three changing operations apart.
    struct Change {
        bool checkOnly;
        OptimizeOperate from;
        OptimizeOperate to;
        IdReply reply;
    };

    ec::EC change_services(const Change& change, ICommand* cmd,
                           const std::vector<unsigned int>& ids, std::vector<unsigned int>& out);
};

} // namespace rpc
