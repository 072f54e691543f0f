#include "conf/conf.h"

#include "framework/owned.h"
#include "framework/xml.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

const char* const CConf::m_confPath = "./config/system_operation/conf.xml";

namespace
{

constexpr const char* score_path = "//kavra_conf/myself_config/optimize_sorce";
constexpr const char* count_path = "//kavra_conf/myself_config/optimize_num";
constexpr const char* info_path = "//kavra_conf/service_optimize/info";

// Locked from load to save by every operation that writes. Each of them replaces the whole file, so
// overlapping ones would undo each other's changes.
std::mutex write_mutex;

enum class Access { read, write };

/// The document cycle of every operation: loads the file, selects, works on the selection, saves
/// the file if `access` is write, and releases everything in reverse order. Returns false if the
/// selection is null or `work` returns false, both without saving, or if the XML library throws.
template <class Selected, class Work>
bool run_cycle(Access access, Selected* (IXmlNode::*select)(const char*), const char* xpath,
               Work work)
{
    std::unique_lock<std::mutex> lock(write_mutex, std::defer_lock);
    if (access == Access::write) {
        lock.lock();
    }
    try {
        owned<IXmlDocument> document(newXmlDocument());
        document->load(CConf::m_confPath);
        owned<IXmlNode> root(document->root());
        owned<Selected> selected((root.get()->*select)(xpath));
        const bool done = selected && work(*selected);
        if (done && access == Access::write) {
            document->save(CConf::m_confPath);
        }
        // Released here and not by the guards: these swallow the exceptions of release(), but such
        // an exception makes the operation fail.
        give_back(selected);
        give_back(root);
        give_back(document);
        return done;
    } catch (const CLiteXmlException&) {
        return false;
    }
}

/// Runs a cycle that calls `visit` with each service entry in document order. If `visit` returns
/// false, the cycle ends without saving.
template <class Visit>
bool for_each_service(Access access, Visit visit)
{
    return run_cycle(access, &IXmlNode::selectNodes, info_path, [&visit](IXmlNodeList& list) {
        const int count = list.count();
        for (int position = 0; position < count; ++position) {
            owned<IXmlNode> info(list.item(position));
            if (!visit(*info)) {
                return false;
            }
            give_back(info);
        }
        return true;
    });
}

int to_number(const std::string& text)
{
    using limits = std::numeric_limits<int>;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, limits::min(), limits::max()));
}

int number_attribute(IXmlNode& info, const char* name)
{
    return to_number(info.attribute(name)->value());
}

bool read_number(const char* xpath, unsigned int& number)
{
    unsigned int read = 0;
    const bool done =
        run_cycle(Access::read, &IXmlNode::selectSingleNode, xpath, [&read](IXmlNode& node) {
            read = static_cast<unsigned int>(to_number(node.value()));
            return true;
        });
    if (done) {
        number = read;
    }
    return done;
}

/// Brings one entry in line with its live service. Returns the state that the listing shows for it,
/// or nothing if the listing leaves it out.
std::optional<int> reconcile(IXmlNode& info, const TServiceInfo& live)
{
    const bool off = live.level == "off";
    const bool on = live.xinetd ? live.level == "on" : !off;
    const int stored = number_attribute(info, "op");
    if (!on && !off) {
        return stored; // xinetd, neither on nor off: leave the entry as it is
    }
    // A service that the module switched off keeps its recorded levels until it is restored, and an
    // ignored service is left alone.
    if (stored == (on ? OPT_IGNORED : OPT_OPTIMIZED)) {
        return stored;
    }
    const OptimizeOperate state = on ? OPT_NONE : OPT_UNAVAILABLE;
    info.attribute("op")->setValue(std::to_string(state).c_str());
    info.attribute("level")->setValue(live.level.c_str());
    info.attribute("xinetd")->setValue(live.xinetd ? "1" : "0");
    return on ? std::optional<int>(state) : std::nullopt;
}

} // namespace

bool CConf::GetOptimizeScore(unsigned int& score)
{
    return read_number(score_path, score);
}

bool CConf::GetOptimizeCount(unsigned int& count)
{
    return read_number(count_path, count);
}

bool CConf::SetOptimizeScore(unsigned int score)
{
    return run_cycle(Access::write, &IXmlNode::selectSingleNode, score_path,
                     [score](IXmlNode& node) {
                         node.setValue(std::to_string(score).c_str());
                         return true;
                     });
}

bool CConf::GetValidServiceList(const CServiceMap& services, rpc::Items& items)
{
    return for_each_service(Access::write, [&](IXmlNode& info) {
        const auto live = services.find(info.attribute("name")->value());
        if (live == services.end()) {
            info.attribute("op")->setValue(std::to_string(OPT_UNAVAILABLE).c_str());
            return true;
        }
        const std::optional<int> state = reconcile(info, live->second);
        if (!state) {
            return true;
        }
        const int id = number_attribute(info, "id");
        std::unique_ptr<std::string> name(new (std::nothrow) std::string(live->first));
        std::unique_ptr<std::string> desc(
            new (std::nothrow) std::string(utf8_to_gbk(info.attribute("desc")->value())));
        if (!name || !desc) {
            return false;
        }
        items.push_back(
            {static_cast<rpc::int32>(id), name.get(), desc.get(), static_cast<rpc::int32>(*state)});
        name.release();
        desc.release();
        return true;
    });
}

bool CConf::GetServiceFromConfigByOp(std::vector<ServiceOptimize>& services, OptimizeOperate op)
{
    return for_each_service(Access::read, [&](IXmlNode& info) {
        if (number_attribute(info, "op") == op) {
            services.push_back(ServiceOptimize{
                number_attribute(info, "id"), info.attribute("name")->value(), op,
                info.attribute("level")->value(), number_attribute(info, "xinetd") != 0});
        }
        return true;
    });
}

bool CConf::ModifyOpByIds(const std::vector<int>& ids, OptimizeOperate op)
{
    const std::string state = std::to_string(op);
    return for_each_service(Access::write, [&](IXmlNode& info) {
        if (number_attribute(info, "op") == OPT_UNAVAILABLE) {
            return true;
        }
        const int id = number_attribute(info, "id");
        for (auto left = std::count(ids.begin(), ids.end(), id); left != 0; --left) {
            info.attribute("op")->setValue(state.c_str());
        }
        return true;
    });
}

bool CConf::FindServiceById(const std::vector<ServiceOptimize>& services, int id,
                            ServiceOptimize& found)
{
    const auto match = std::find_if(services.begin(), services.end(),
                                    [id](const ServiceOptimize& entry) { return entry.id == id; });
    if (match == services.end()) {
        return false;
    }
    found = *match;
    return true;
}

std::string CConf::utf8_to_gbk(const std::string& text)
{
    // GBK needs at most two bytes where UTF-8 needs at least one, so zeros always follow the
    // output.
    std::size_t left = std::strlen(text.c_str());
    std::size_t room = 4 * left;
    const std::unique_ptr<char[]> gbk(left == 0 ? nullptr : new (std::nothrow) char[room]());
    if (!gbk) {
        return {};
    }
    const iconv_t converter = iconv_open("GBK", "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return {};
    }
    char* from = const_cast<char*>(text.c_str()); // iconv does not write through it
    char* to = gbk.get();
    iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    return gbk.get();
}
