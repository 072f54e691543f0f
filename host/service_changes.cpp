#include "host/service_changes.h"

#include "host/options.h"

#include <algorithm>
#include <stdexcept>

namespace host
{

namespace
{

constexpr Change changes[] = {
    {"optimize_service", false, none, optimized, "already optimized"},
    {"restore_service", false, optimized, none, "already on"},
    {"ignore_service", true, none, ignored, "already ignored"},
    {"ignore_service", false, ignored, none, "not ignored"},
};

/// Why a service that is in another state was not handled.
std::string reason_of(int op)
{
    const auto state = static_cast<std::size_t>(op);
    return state < state_names.size() ? state_names[state] : "state " + std::to_string(op);
}

/// The module switches the first service of an id, which may be another one.
void require_own_id(const Entry& entry, const std::vector<Entry>& entries)
{
    for (const Entry& other : entries) {
        if (other.id == entry.id && other.name != entry.name) {
            throw std::runtime_error("'" + entry.name + "' and '" + other.name +
                                     "' have the same id " + std::to_string(entry.id) +
                                     " in the configuration");
        }
    }
}

} // namespace

const Change* change_of(const Call& call)
{
    const auto* const found =
        std::find_if(std::begin(changes), std::end(changes), [&call](const Change& each) {
            return each.operation == call.operation &&
                   each.flag == call.arguments.flag.value_or(false);
        });
    return found == std::end(changes) ? nullptr : found;
}

std::vector<unsigned int> find_ids(const std::vector<std::string>& services,
                                   const std::vector<Entry>& entries)
{
    std::vector<unsigned int> ids;
    const auto add = [&ids](unsigned int id) {
        if (std::count(ids.begin(), ids.end(), id) == 0) {
            ids.push_back(id);
        }
    };
    for (const std::string& service : services) {
        if (is_id(service)) {
            add(to_number(service));
            continue;
        }
        bool is_found = false;
        for (const Entry& entry : entries) {
            if (entry.name == service) {
                is_found = true;
                require_own_id(entry, entries);
                add(entry.id);
            }
        }
        if (!is_found) {
            throw std::runtime_error("no service '" + service +
                                     "' is configured; see optimize_host ls_service");
        }
    }
    return ids;
}

Names names_of(const std::vector<Entry>& entries, const Change* change)
{
    Names names;
    for (const Entry& entry : entries) {
        if (change != nullptr && entry.op == change->from) {
            names.emplace(entry.id, entry.name);
        }
    }
    for (const Entry& entry : entries) {
        names.emplace(entry.id, entry.name);
    }
    return names;
}

void explain(const std::vector<unsigned int>& missing, const std::vector<Entry>& entries,
             const Change& change, Ending& ending)
{
    for (const unsigned int id : missing) {
        const auto find = [&entries, id](auto is_wanted) {
            return std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
                return entry.id == id && is_wanted(entry.op);
            });
        };
        const auto in_state = [&find](State state) {
            return find([state](int op) { return op == state; });
        };
        if (const auto entry = in_state(change.from); entry != entries.end()) {
            ending.not_handled.push_back({id, entry->name, command_failed});
        } else if (const auto done = in_state(change.to); done != entries.end()) {
            ending.unchanged.push_back({id, done->name, change.is_made});
        } else if (const auto other = find([](int) { return true; }); other != entries.end()) {
            ending.not_handled.push_back({id, other->name, reason_of(other->op)});
        } else {
            ending.not_handled.push_back({id, "", "not configured"});
        }
    }
}

} // namespace host
