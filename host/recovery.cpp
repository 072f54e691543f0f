#include "host/recovery.h"

#include "fwbase/xml_document.h"
#include "host/configuration.h"
#include "host/scratch_folder.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace host
{

namespace
{

/// A level that no listing writes.
constexpr const char* unread = "unread";

/// Whether the listing of a scratch copy held the service.
bool is_listed(const Entry& entry)
{
    return entry.op != unavailable || entry.level != unread;
}

/// The services of the configuration as a listing would record them, in the same order. A level
/// that the listing does not write is `unread`.
std::vector<Entry> list_on_copy(IXmlDocument& configuration, rpc::IIfaceRealize& interface)
{
    for_each_service(configuration,
                     [](IXmlNode& info) { info.attribute("level")->setValue(unread); });
    const ScratchFolder folder;
    std::filesystem::create_directories(std::filesystem::path(configuration_path).parent_path());
    // Spelled differently, the path is not taken for the one that the document was loaded from.
    configuration.save(std::filesystem::absolute(configuration_path).c_str());
    run_silently({"ls_service", {}}, interface);
    const owned<IXmlDocument> listed(newXmlDocument());
    listed->load(configuration_path);
    return read_services(*listed);
}

/// Whether a listed service is no longer as the configuration says.
bool has_changed(const Entry& recorded, const Entry& listed)
{
    return listed.op != recorded.op || (listed.level != unread && listed.level != recorded.level);
}

} // namespace

std::string complete(const Call& interrupted, rpc::IIfaceRealize& interface)
{
    const owned<IXmlDocument> configuration(newXmlDocument());
    configuration->load(configuration_path);
    const std::vector<Entry> recorded = read_services(*configuration);
    const std::vector<Entry> listed = list_on_copy(*configuration, interface);
    if (listed.size() != recorded.size() || std::none_of(listed.begin(), listed.end(), is_listed)) {
        throw std::runtime_error("no configured service is in the listing of chkconfig");
    }

    const int start = interrupted.operation == "restore_service" ? optimized : none;
    std::vector<unsigned int> begun;
    std::vector<unsigned int> unlisted;
    for (const unsigned int id : *interrupted.arguments.ids) {
        // The module switches the first one, too.
        const auto entry =
            std::find_if(recorded.begin(), recorded.end(), [id, start](const Entry& each) {
                return each.id == id && each.op == start;
            });
        if (entry == recorded.end() || std::count(begun.begin(), begun.end(), id) != 0) {
            continue; // not configured any more, recorded already, or requested twice
        }
        const Entry& now = listed[static_cast<std::size_t>(entry - recorded.begin())];
        if (has_changed(*entry, now)) {
            begun.push_back(id);
            if (!is_listed(now)) {
                unlisted.push_back(id);
            }
        }
    }
    if (begun.empty()) {
        return "";
    }

    const std::vector<unsigned int> handled =
        run_silently({interrupted.operation, {{}, {}, begun}}, interface);
    std::vector<unsigned int> dropped;
    for (const unsigned int id : missing_ids(begun, handled)) {
        if (std::count(unlisted.begin(), unlisted.end(), id) == 0) {
            throw std::runtime_error("the command of service " + std::to_string(id) + " failed");
        }
        dropped.push_back(id);
    }
    std::string done = "completed the interrupted " + interrupted.operation + to_text(handled);
    if (!dropped.empty()) {
        done += "; not listed by chkconfig and dropped:" + to_text(dropped);
    }
    return done;
}

} // namespace host
