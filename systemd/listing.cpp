#include "systemd/listing.h"

#include "systemd/records.h"
#include "systemd/tree.h"
#include "systemd/unit_name.h"

#include <map>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace systemd
{

namespace
{

/// The run levels in which each unit is on.
using Levels = std::map<std::string, std::string>;

constexpr const char* on = "2345";
constexpr const char* off = "";
/// Of a unit whose change was interrupted: neither off nor on in all levels, so that a call in
/// either direction switches it.
constexpr const char* partly = "2";

void add_unit_files(Levels& units, const fs::path& root, const Tree& tree)
{
    const Outcome listing = systemctl(root, "list-unit-files --no-legend --no-pager --full");
    if (listing.status != 0) {
        throw std::runtime_error("systemctl list-unit-files failed with status " +
                                 std::to_string(listing.status));
    }
    std::istringstream lines(listing.output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string unit;
        std::string state;
        words >> unit >> state;
        if (!is_unit_name(unit) || !tree.has(unit) || !tree.alias_target(unit).empty()) {
            continue;
        }
        // The links decide, not the state that systemctl prints: it counts a link to /dev/null in
        // another unit's folder, and does not count a link of another name.
        if (state == "enabled" || state == "disabled" ||
            (state == "indirect" && ends_with(unit, ".service"))) {
            units[unit] = tree.own_links_of(unit).empty() ? off : on;
        }
    }
}

/// Adds instances of templates that have links, because instances have no unit files.
void add_instances(Levels& units, const Tree& tree)
{
    for (const Link& link : tree.links()) {
        const std::string unit = base_name(link.path);
        if (is_unit_name(unit) && !template_of(unit).empty() && tree.has(unit) &&
            !tree.is_masked(unit) && tree.alias_target(unit).empty()) {
            units[unit] = on;
        }
    }
}

/// Adds the units that have a record, because a unit that is not listed could not be restored.
void add_recorded(Levels& units, const fs::path& root, const Tree& tree)
{
    for (const auto& [unit, is_pending] : recorded_units(root)) {
        if (!tree.has_file(unit) || tree.is_masked(unit)) {
            continue;
        }
        if (is_pending) {
            units[unit] = partly;
        } else {
            units.emplace(unit, off);
        }
    }
}

std::string to_line(const std::string& name, const std::string& levels)
{
    std::string line = name + std::string(name.size() < 15 ? 15 - name.size() : 0, ' ');
    for (char digit = '0'; digit <= '6'; ++digit) {
        line +=
            std::string("\t") + digit + (levels.find(digit) == std::string::npos ? ":off" : ":on");
    }
    return line + '\n';
}

/// The listing without the lines of services that are units.
std::string without_units(const std::string& listing, const Names& units)
{
    std::istringstream lines(listing);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        std::string name;
        std::istringstream(line) >> name;
        if (!name.empty() && name.back() == ':') {
            name.pop_back();
        }
        const bool is_heading = line.find('\t') == std::string::npos;
        kept += is_heading || units.count(name) == 0 ? line + '\n' : "";
    }
    return kept;
}

} // namespace

Outcome list(const fs::path& root, const std::string& tool)
{
    const Tree tree(root);
    Levels units;
    add_unit_files(units, root, tree);
    add_instances(units, tree);
    add_recorded(units, root, tree);

    Names names; // also those of units that are not listed
    for (const std::string& unit : tree.names()) {
        names.insert(to_short(unit));
    }
    Levels listed;
    for (const auto& [unit, levels] : units) {
        listed[to_short(unit)] = levels;
        const std::string name = unit.substr(0, unit.rfind('.'));
        if (ends_with(unit, ".socket") && tree.has(name + "@.service") &&
            names.insert(name).second) {
            listed[name] = levels;
        }
    }
    Outcome outcome = {"", 0};
    for (const auto& [name, levels] : listed) {
        outcome.output += to_line(name, levels);
    }
    if (!tool.empty()) {
        const Outcome others = run(quoted(tool) + " --list");
        outcome.output += without_units(others.output, names);
        outcome.status = others.status;
    }
    return outcome;
}

} // namespace systemd
