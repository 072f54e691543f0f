// The operations of the interface, on plain values.
#pragma once

#include "conf/conf.h"
#include "conf/system_optimize_item.h"
#include "framework/rpc.h"
#include "rpc/result_codes.h"
#include "service/redhat_service.h"

#include <memory>
#include <vector>

namespace rpc
{

class CIfaceRealize_Optimize_Option;

using Ids = std::vector<unsigned int>;

/// Carries the operations. The interface object contains the only instance: it sets m_realize,
/// calls init, runs operations, and calls release.
///
/// Every operation returns operation_result::success or ::failure and sets its out value only on
/// success. Operations may run on several threads at once. The four service operations then take
/// turns while they look at the machine and record what they did, but not while they reply.
///
/// The four service operations stream their results: they send one reply per item through the
/// interface object, with an out list that holds just that item, and leave the out list empty. A
/// reply that cannot be sent does not stop the others.
class Optimize_Option
{
public:
    /// The containing interface object; not owned.
    CIfaceRealize_Optimize_Option* m_realize = nullptr;
    std::unique_ptr<ILinuxSystemService> m_service;

    /// Creates the service object. `arg` is not used.
    ec::EC init(void* arg);
    /// Destroys the service object, if there is one.
    void release();

    ec::EC get_optimize_num(ICommand* cmd, rpc::int32& count);
    ec::EC get_optimize_sorce(ICommand* cmd, rpc::int32& score);
    ec::EC set_optimize_sorce(ICommand* cmd, const rpc::int32& score);

    /// Brings the configuration in line with the machine, then streams the configured services that
    /// are on it.
    ec::EC ls_service(ICommand* cmd, Items& items);

    // These three stream the ids that they handled. An id is silently skipped if it is not
    // configured, its service is in another state, or its command failed.

    /// Switches services off that are on.
    ec::EC optimize_service(ICommand* cmd, const Ids& ids, Ids& out);
    /// Switches services back on that optimize_service switched off.
    ec::EC restore_service(ICommand* cmd, const Ids& ids, Ids& out);
    /// Marks services that are on as ignored, or removes the mark.
    ec::EC ignore_service(ICommand* cmd, const Ids& ids, const bool& ignore, Ids& out);

    /// Handles those of `ids` whose entry is in the state `op`, in order, and appends them to
    /// `done`. With `checkOnly` it only checks the state. Otherwise it switches services in
    /// OPT_NONE off and those in OPT_OPTIMIZED back on, and skips any other state. Returns false if
    /// the configuration cannot be read.
    bool SetOSService(const Ids& ids, std::vector<int>& done, bool checkOnly, OptimizeOperate op);

    // Operations for other kinds of machines. Here they succeed and do nothing.

    ec::EC ls_reg(ICommand*, Items&) { return operation_result::success; }
    ec::EC ls_other(ICommand*, Items&) { return operation_result::success; }
    ec::EC optimize_reg(ICommand*, const Ids&, Ids&) { return operation_result::success; }
    ec::EC optimize_other(ICommand*, const Ids&, Ids&) { return operation_result::success; }
    ec::EC restore_reg(ICommand*, const Ids&, Ids&) { return operation_result::success; }
    ec::EC restore_other(ICommand*, const Ids&, Ids&) { return operation_result::success; }
    ec::EC ignore_reg(ICommand*, const Ids&, const bool&, Ids&)
    {
        return operation_result::success;
    }
    ec::EC ignore_other(ICommand*, const Ids&, const bool&, Ids&)
    {
        return operation_result::success;
    }

private:
    using IdReply = ec::EC (CIfaceRealize_Optimize_Option::*)(ICommand*, ec::EC, Ids&);

    /// How the three changing operations differ.
    struct Transition {
        bool checkOnly;
        OptimizeOperate from;
        OptimizeOperate to;
        IdReply reply;
    };

    ec::EC change_services(const Transition& transition, ICommand* cmd, const Ids& ids, Ids& out);
};

} // namespace rpc
