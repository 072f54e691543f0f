#include "rpc/system_option.h"

#include "rpc/result_codes.h"
#include "rpc/system_option_s.h"

#include <mutex>

namespace rpc
{

namespace
{

// Held from the look at the machine or the file to the record of what was done, never while a reply
// is sent. Without it a listing that was read before a switch would undo the record of that switch,
// and with it the run levels to restore; and one listing would take its locale from another.
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

ec::EC Optimize_Option::ls_service(ICommand* cmd, std::vector<SystemOptimize_Item>& items)
{
    std::vector<SystemOptimize_Item> records;
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
        record.name = nullptr; // the strings now belong to the reply, sent or not
        record.desc = nullptr;
        m_realize->ret_ls_service(cmd, operation_result::success, items);
        items.clear();
    }
    return operation_result::success;
}

bool Optimize_Option::SetOSService(const std::vector<unsigned int>& ids, std::vector<int>& done,
                                   bool checkOnly, OptimizeOperate op)
{
    std::vector<ServiceOptimize> services;
    if (!CConf::GetServiceFromConfigByOp(services, op)) {
        return false;
    }
    for (const unsigned int unsigned_id : ids) {
        const int id = static_cast<int>(unsigned_id); // bit for bit: 4294967295 names the entry -1
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

/// The machine is changed first, then the file, and the client hears of an id after both.
ec::EC Optimize_Option::change_services(const Change& change, ICommand* cmd,
                                        const std::vector<unsigned int>& ids,
                                        std::vector<unsigned int>& out)
{
    std::vector<int> done;
    {
        const std::lock_guard<std::mutex> lock(services_mutex);
        if (!SetOSService(ids, done, change.checkOnly, change.from)) {
            return operation_result::failure;
        }
        if (!done.empty() && !CConf::ModifyOpByIds(done, change.to)) {
            return operation_result::failure;
        }
    }
    for (const int id : done) {
        out.push_back(static_cast<unsigned int>(id));
        (m_realize->*change.reply)(cmd, operation_result::success, out);
        out.clear();
    }
    return operation_result::success;
}

ec::EC Optimize_Option::optimize_service(ICommand* cmd, const std::vector<unsigned int>& ids,
                                         std::vector<unsigned int>& out)
{
    return change_services(
        {false, OPT_NONE, OPT_OPTIMIZED, &CIfaceRealize_Optimize_Option::ret_optimize_service}, cmd,
        ids, out);
}

ec::EC Optimize_Option::restore_service(ICommand* cmd, const std::vector<unsigned int>& ids,
                                        std::vector<unsigned int>& out)
{
    return change_services(
        {false, OPT_OPTIMIZED, OPT_NONE, &CIfaceRealize_Optimize_Option::ret_restore_service}, cmd,
        ids, out);
}

ec::EC Optimize_Option::ignore_service(ICommand* cmd, const std::vector<unsigned int>& ids,
                                       const bool& ignore, std::vector<unsigned int>& out)
{
    return change_services({true, ignore ? OPT_NONE : OPT_IGNORED, ignore ? OPT_IGNORED : OPT_NONE,
                            &CIfaceRealize_Optimize_Option::ret_ignore_service},
                           cmd, ids, out);
}

ec::EC Optimize_Option::ls_reg(ICommand*, std::vector<SystemOptimize_Item>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::ls_other(ICommand*, std::vector<SystemOptimize_Item>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::optimize_reg(ICommand*, const std::vector<unsigned int>&,
                                     std::vector<unsigned int>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::optimize_other(ICommand*, const std::vector<unsigned int>&,
                                       std::vector<unsigned int>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::restore_reg(ICommand*, const std::vector<unsigned int>&,
                                    std::vector<unsigned int>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::restore_other(ICommand*, const std::vector<unsigned int>&,
                                      std::vector<unsigned int>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::ignore_reg(ICommand*, const std::vector<unsigned int>&, const bool&,
                                   std::vector<unsigned int>&)
{
    return operation_result::success;
}

ec::EC Optimize_Option::ignore_other(ICommand*, const std::vector<unsigned int>&, const bool&,
                                     std::vector<unsigned int>&)
{
    return operation_result::success;
}

} // namespace rpc
