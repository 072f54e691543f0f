#include "host/recovery.h"

#include "framework/xml.h"
#include "fwbase/xml_document.h"
#include "host/configuration_lock.h"
#include "host/scratch_folder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <stdexcept>

namespace host
{

namespace
{

using Ids = std::vector<unsigned int>;

constexpr int none = 0;
constexpr int optimized = 1;
constexpr int unavailable = 3;

/// A level that no listing writes.
constexpr const char* unread = "unread";

/// A service of the configuration.
struct Entry {
    unsigned int id;
    int op;
    std::string level;

    bool is_listed() const { return op != unavailable || level != unread; }
};

/// Reads a number as the module does.
int to_number(const std::string& text)
{
    using Limits = std::numeric_limits<int>;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

template <class Visit>
void for_each_service(IXmlDocument& document, Visit visit)
{
    const owned<IXmlNode> root(document.root());
    const owned<IXmlNodeList> list(root->selectNodes("//kavra_conf/service_optimize/info"));
    for (int position = 0; list && position < list->count(); ++position) {
        const owned<IXmlNode> info(list->item(position));
        visit(*info);
    }
}

std::vector<Entry> read_services(IXmlDocument& document)
{
    std::vector<Entry> entries;
    for_each_service(document, [&entries](IXmlNode& info) {
        entries.push_back({static_cast<unsigned int>(to_number(info.attribute("id")->value())),
                           to_number(info.attribute("op")->value()),
                           info.attribute("level")->value()});
    });
    return entries;
}

/// Runs a call of the module; returns the ids that it handled.
Ids run(const Call& call, rpc::IIfaceRealize& interface)
{
    Ids handled;
    const auto on_item = [&handled](const fwbase::Message& item) { add_ids(item, handled); };
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    ec::EC result = 0;
    const owned<fwbase::Message> reply =
        run_call(interface, *make_call_block(call), on_item, result);
    if (!reply || !ec::succeeded(reply->code())) {
        const std::string reason = fwbase::take_last_xml_error();
        throw std::runtime_error(call.operation +
                                 (reason.empty() ? " failed" : " failed: " + reason));
    }
    return handled;
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
    run({"ls_service", {}}, interface);
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
    if (listed.size() != recorded.size() ||
        std::none_of(listed.begin(), listed.end(), std::mem_fn(&Entry::is_listed))) {
        throw std::runtime_error("no configured service is in the listing of chkconfig");
    }

    const int start = interrupted.operation == "restore_service" ? optimized : none;
    Ids begun;
    Ids unlisted;
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
            if (!now.is_listed()) {
                unlisted.push_back(id);
            }
        }
    }
    if (begun.empty()) {
        return "";
    }

    const Ids handled = run({interrupted.operation, {{}, {}, begun}}, interface);
    Ids dropped;
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
