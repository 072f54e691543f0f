#include "systemd/switching.h"

#include "systemd/process.h"
#include "systemd/records.h"
#include "systemd/tree.h"
#include "systemd/unit_name.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace systemd
{

namespace
{

void say(const std::string& text)
{
    std::cerr << "chkconfig: " << text << '\n';
}

void flush_folders_of(const fs::path& root, const Links& links)
{
    std::set<fs::path> folders = {links_folder(root)};
    for (const Link& link : links) {
        folders.insert((links_folder(root) / link.path).parent_path());
    }
    for (const fs::path& folder : folders) {
        flush_folder(folder);
    }
}

void remove_links(const fs::path& root, const Links& links)
{
    for (const Link& link : links) {
        const fs::path path = links_folder(root) / link.path;
        if (unlinkat(AT_FDCWD, path.c_str(), 0) != 0 && errno != ENOENT) {
            fail(path.string() + ": cannot remove");
        }
    }
    flush_folders_of(root, links);
}

/// Makes the links that are missing. Leaves alone any other file that has the name of one.
void put_back(const fs::path& root, const Links& links)
{
    for (const Link& link : links) {
        const fs::path path = links_folder(root) / link.path;
        if (mkdirat(AT_FDCWD, path.parent_path().c_str(), 0755) != 0 && errno != EEXIST) {
            fail(path.parent_path().string() + ": cannot make");
        }
        if (symlinkat(link.target.c_str(), AT_FDCWD, path.c_str()) == 0) {
            continue;
        }
        if (errno != EEXIST) {
            fail(path.string() + ": cannot make");
        }
        std::error_code error;
        if (fs::read_symlink(path, error) != link.target) {
            say(path.string() + ": something else is there now, and is left alone");
        }
    }
    flush_folders_of(root, links);
}

Links united(Links links, const Links& others)
{
    for (const Link& link : others) {
        const auto is_same = [&link](const Link& each) { return each.path == link.path; };
        if (std::none_of(links.begin(), links.end(), is_same)) {
            links.push_back(link);
        }
    }
    return links;
}

/// Tells systemd that links have changed, if it runs on this root.
void reload(const fs::path& root)
{
    if (root == "/" && run("systemctl daemon-reload").status != 0) {
        say("warning: systemctl daemon-reload failed: systemd does not know the change yet");
    }
}

/// Puts back the links of changes that were interrupted.
void settle(const fs::path& root, const Records& records)
{
    bool any = false;
    for (const auto& [unit, is_pending] : recorded_units(root)) {
        if (is_pending) {
            put_back(root, records.read(pending(unit)));
            records.remove(pending(unit));
            say(unit + ": a change was interrupted; its links are put back");
            any = true;
        }
    }
    if (any) {
        reload(root);
    }
}

void enable(const fs::path& root, const std::string& unit)
{
    say(unit + ": no links are recorded, so it is enabled as its unit file says");
    if (systemctl(root, "enable -- " + unit).status != 0) {
        throw std::runtime_error(unit + ": systemctl enable failed");
    }
    reload(root);
}

} // namespace

std::string find_unit(const fs::path& root, const std::string& name)
{
    const Tree tree(root);
    const auto recorded = recorded_units(root);
    const auto exists = [&](const std::string& unit) {
        return is_unit_name(unit) && (tree.has(unit) || recorded.count(unit) != 0);
    };
    std::string unit = has_suffix(name) ? name : name + ".service";
    if (!exists(unit)) {
        unit = name + ".socket";
        if (!exists(unit) || !tree.has(name + "@.service")) {
            return "";
        }
    }
    const std::string target = tree.alias_target(unit);
    if (!target.empty() && recorded.count(unit) == 0) {
        throw std::runtime_error(unit + ": is an alias of " + target);
    }
    return unit;
}

void switch_off(const fs::path& root, const std::string& unit)
{
    const Records records(root);
    settle(root, records);
    const Tree tree(root);
    if (tree.own_links_of(unit).empty()) {
        return;
    }
    const Links links = tree.links_of(unit);
    try {
        records.write(pending(unit), links);
        remove_links(root, links);
        reload(root);
        if (tree.is_indirect(unit) && records.has(unit)) {
            // A unit in Also= was switched on after this one was switched off: keep all links.
            records.write(unit, united(records.read(unit), links));
            records.remove(pending(unit));
        } else {
            records.rename(pending(unit), unit);
        }
    } catch (const std::exception&) {
        put_back(root, links);
        records.remove(pending(unit));
        reload(root);
        throw;
    }
}

void switch_on(const fs::path& root, const std::string& unit)
{
    const Records records(root);
    settle(root, records);
    const Tree tree(root);
    // The unit is on already. An indirect unit with a record may be on in part only.
    if (!tree.own_links_of(unit).empty() && !(tree.is_indirect(unit) && records.has(unit))) {
        records.remove(unit);
        return;
    }
    Links links;
    for (const auto& [other, is_pending] : recorded_units(root)) {
        if (other == unit) {
            links = united(links, records.read(unit));
            continue;
        }
        try {
            links = united(links, tree.own_links_in(records.read(other), unit));
        } catch (const std::runtime_error& error) {
            say(error.what()); // another unit's damaged record is no reason to stop
        }
    }
    if (links.empty()) {
        enable(root, unit);
        return;
    }
    if (!tree.has_file(unit)) {
        throw std::runtime_error(unit + ": its unit file is gone; its links stay recorded");
    }
    records.write(pending(unit), links);
    put_back(root, links);
    reload(root);
    records.remove(unit);
    records.remove(pending(unit));
}

} // namespace systemd
