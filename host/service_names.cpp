#include "host/service_names.h"

#include "host/options.h"

#include <stdexcept>
#include <unordered_map>

namespace host
{

namespace
{

/// Why a name that is not configured cannot be used.
std::string refusal_of(const std::string& name, const transaction::Lines& record)
{
    const auto line = record.find(name);
    return line == record.end() || line->second.state == transaction::State::ignored
               ? "no service '" + name +
                     "' is configured; ls_service lists them, add_service adds one"
               : name + ": " + how_to_restore(name, line->second.levels);
}

} // namespace

std::string how_to_restore(const std::string& name, const std::string& levels)
{
    return "not configured; it was on " + transaction::on_in(levels) + ": add_service " + name +
           ", then restore_service " + name;
}

std::vector<unsigned int> find_ids(const std::vector<std::string>& services,
                                   const transaction::Transaction& transaction)
{
    std::unordered_map<std::string, std::vector<unsigned int>> ids_of;
    std::unordered_map<unsigned int, const std::string*> owners; // the first name of an id
    for (const transaction::Entry& entry : transaction.entries()) {
        ids_of[entry.name].push_back(entry.id);
        owners.emplace(entry.id, &entry.name);
    }
    std::vector<unsigned int> ids;
    for (const std::string& service : services) {
        if (is_id(service)) {
            ids.push_back(to_number(service));
            continue;
        }
        const auto found = ids_of.find(service);
        if (found == ids_of.end()) {
            throw std::runtime_error(refusal_of(service, transaction.record()));
        }
        for (const unsigned int id : found->second) {
            if (*owners[id] != service) {
                throw std::runtime_error("'" + service + "' and '" + *owners[id] +
                                         "' have the same id " + std::to_string(id) +
                                         " in the configuration");
            }
            ids.push_back(id);
        }
    }
    return ids;
}

} // namespace host
