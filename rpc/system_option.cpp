#include "rpc/system_option.h"

#include "rpc/system_option_s.h"

#include <mutex>

namespace rpc
{

namespace
{

// Locked from the listing, or the reading of the file, until the result is saved, but not while a
// reply is sent. A listing that was made before a switch must not be saved after it: that would
// overwrite the state of the switched service and lose its run levels. Two listings at once would
// also disturb each other's locale.
std::mutex services_mutex;

ec::EC result_of(bool done)
{
    return done ? operation_result::success : operation_result::failure;
}

} // namespace

ec::EC Optimize_Option::init(void*)
{
    m_service.reset(ILinuxSystemService::instance());
    return result_of(m_service != nullptr);
}

void Optimize_Option::release()
{
    m_service.reset();
}

ec::EC Optimize_Option::get_optimize_num(ICommand*, rpc::int32& count)
{
    return result_of(CConf::GetOptimizeCount(count));
}

ec::EC Optimize_Option::get_optimize_sorce(ICommand*, rpc::int32& score)
{
    return result_of(CConf::GetOptimizeScore(score));
}

ec::EC Optimize_Option::set_optimize_sorce(ICommand*, const rpc::int32& score)
{
    return result_of(CConf::SetOptimizeScore(score));
}

ec::EC Optimize_Option::ls_service(ICommand* cmd, Items& items)
{
    Items records;
    const ItemStringsGuard unsent(records);
    {
        const std::lock_guard<std::mutex> lock(services_mutex);
        CServiceMap services;
        if (!m_service->GetSystemServiceList(services) ||
            !CConf::GetValidServiceList(services, records)) {
            return operation_result::failure;
        }
    }
    for (SystemOptimize_Item& record : records) {
        items.push_back(record);
        record.name = nullptr; // the strings belong to the reply now, even if it is not sent
        record.desc = nullptr;
        m_realize->ret_ls_service(cmd, operation_result::success, items);
        items.clear();
    }
    return operation_result::success;
}

bool Optimize_Option::SetOSService(const Ids& ids, std::vector<int>& done, bool checkOnly,
                                   OptimizeOperate op)
{
    std::vector<ServiceOptimize> services;
    if (!CConf::GetServiceFromConfigByOp(services, op)) {
        return false;
    }
    done.reserve(done.size() + ids.size()); // so that adding a switched id cannot fail
    for (const unsigned int unsigned_id : ids) {
        const int id = static_cast<int>(unsigned_id); // bit for bit: 4294967295 is the entry -1
        ServiceOptimize service;
        if (!CConf::FindServiceById(services, id, service)) {
            continue;
        }
        bool handled = checkOnly;
        if (!checkOnly && op == OPT_NONE) {
            handled = m_service->OptimizeService(service.name, service.level, service.xinetd);
        } else if (!checkOnly && op == OPT_OPTIMIZED) {
            handled = m_service->RestoreService(service.name, service.level, service.xinetd);
        }
        if (handled) {
            done.push_back(id);
        }
    }
    return true;
}

// Changes the machine first, then the file, and replies to the client last: the file has the new
// state of every service whose id the client receives.
ec::EC Optimize_Option::change_services(const Transition& transition, ICommand* cmd, const Ids& ids,
                                        Ids& out)
{
    std::vector<int> done;
    {
        const std::lock_guard<std::mutex> lock(services_mutex);
        if (!SetOSService(ids, done, transition.checkOnly, transition.from)) {
            return operation_result::failure;
        }
        if (!done.empty() && !CConf::ModifyOpByIds(done, transition.to)) {
            return operation_result::failure;
        }
    }
    for (const int id : done) {
        out.push_back(static_cast<unsigned int>(id));
        (m_realize->*transition.reply)(cmd, operation_result::success, out);
        out.clear();
    }
    return operation_result::success;
}

ec::EC Optimize_Option::optimize_service(ICommand* cmd, const Ids& ids, Ids& out)
{
    return change_services(
        {false, OPT_NONE, OPT_OPTIMIZED, &CIfaceRealize_Optimize_Option::ret_optimize_service}, cmd,
        ids, out);
}

ec::EC Optimize_Option::restore_service(ICommand* cmd, const Ids& ids, Ids& out)
{
    return change_services(
        {false, OPT_OPTIMIZED, OPT_NONE, &CIfaceRealize_Optimize_Option::ret_restore_service}, cmd,
        ids, out);
}

ec::EC Optimize_Option::ignore_service(ICommand* cmd, const Ids& ids, const bool& ignore, Ids& out)
{
    return change_services({true, ignore ? OPT_NONE : OPT_IGNORED, ignore ? OPT_IGNORED : OPT_NONE,
                            &CIfaceRealize_Optimize_Option::ret_ignore_service},
                           cmd, ids, out);
}

} // namespace rpc
