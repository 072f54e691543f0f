#include "systemd/tree.h"

#include "systemd/unit_name.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace systemd
{

namespace
{

/// Where unit files are, the most important folder first.
constexpr std::array unit_folders = {"etc/systemd/system", "run/systemd/system",
                                     "usr/local/lib/systemd/system", "usr/lib/systemd/system",
                                     "lib/systemd/system"};

fs::directory_iterator entries(const fs::path& folder)
{
    std::error_code error;
    fs::directory_iterator all(folder, error);
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
        throw fs::filesystem_error("cannot read", folder, error);
    }
    return all;
}

/// The target of a link. Empty if the link is gone: another program may have just removed it.
std::string read_link(const fs::path& path)
{
    std::error_code error;
    const fs::path target = fs::read_symlink(path, error);
    if (error && error != std::errc::no_such_file_or_directory) {
        throw fs::filesystem_error("cannot read", path, error);
    }
    return target;
}

/// Adds the names that are links to one of `names`, and links to these, and so on.
void add_aliases(Names& names, const std::map<std::string, std::string>& targets)
{
    for (std::size_t before = 0; before != names.size();) {
        before = names.size();
        for (const auto& [name, target] : targets) {
            if (names.count(target) != 0) {
                names.insert(name);
            }
        }
    }
}

Links links_to(const Names& names, const Links& links)
{
    Links found;
    std::copy_if(links.begin(), links.end(), std::back_inserter(found), [&names](const Link& link) {
        return names.count(base_name(link.path)) + names.count(base_name(link.target)) != 0;
    });
    return found;
}

/// Reads a line that may be continued on the next ones.
bool read_line(std::istream& in, std::string& line)
{
    line.clear();
    for (std::string part; std::getline(in, part); line.back() = ' ') {
        line += part;
        if (line.empty() || line.back() != '\\') {
            return true;
        }
    }
    return !line.empty();
}

} // namespace

fs::path links_folder(const fs::path& root)
{
    return root / unit_folders[0];
}

bool is_for_links(const std::string& subfolder)
{
    return ends_with(subfolder, ".wants") || ends_with(subfolder, ".requires") ||
           ends_with(subfolder, ".upholds");
}

Tree::Tree(const fs::path& root) : m_root(root)
{
    for (const char* const folder : unit_folders) {
        read_units(root / folder);
    }
    read_links("");
    std::sort(m_links.begin(), m_links.end(),
              [](const Link& one, const Link& other) { return one.path < other.path; });
}

void Tree::read_units(const fs::path& folder)
{
    for (const fs::directory_entry& entry : entries(folder)) {
        const std::string name = entry.path().filename();
        const std::string target = entry.is_symlink() ? base_name(read_link(entry)) : name;
        if (has_suffix(name) && !target.empty()) {
            m_targets.emplace(name, target);
        }
    }
}

/// Reads the links in the folder of the administrator, or in one of its subfolders.
void Tree::read_links(const std::string& subfolder)
{
    for (const fs::directory_entry& entry : entries(links_folder(m_root) / subfolder)) {
        const std::string name = entry.path().filename();
        if (!entry.is_symlink()) {
            if (subfolder.empty() && is_for_links(name) && entry.is_directory()) {
                read_links(name);
            }
            continue;
        }
        const std::string target = read_link(entry);
        const bool is_linked_file = subfolder.empty() && base_name(target) == name;
        if (has_suffix(name) && !target.empty() && target != "/dev/null" && !is_linked_file) {
            m_links.push_back({(fs::path(subfolder) / name).string(), target});
        }
    }
}

std::string Tree::entry_of(const std::string& unit) const
{
    const std::string name = m_targets.count(unit) != 0 ? unit : template_of(unit);
    return m_targets.count(name) != 0 ? name : "";
}

std::string Tree::target_of(const std::string& unit) const
{
    const auto found = m_targets.find(entry_of(unit));
    return found == m_targets.end() ? "" : found->second;
}

std::string Tree::alias_target(const std::string& unit) const
{
    const std::string target = target_of(unit);
    const bool is_own = target == entry_of(unit) || target == template_of(unit);
    return is_own || target == "null" ? "" : target;
}

Names Tree::names() const
{
    Names all;
    for (const auto& [name, target] : m_targets) {
        all.insert(name);
    }
    return all;
}

Links Tree::links_of(const std::string& unit) const
{
    return links_to(with_also(unit), m_links);
}

Links Tree::own_links_of(const std::string& unit) const
{
    if (is_masked(unit)) {
        return {};
    }
    Names names = {unit};
    add_aliases(names, m_targets);
    const Links direct = links_to(names, m_links);
    return direct.empty() && is_indirect(unit) ? links_of(unit) : direct;
}

bool Tree::is_indirect(const std::string& unit) const
{
    return ends_with(unit, ".service") && !install_of(unit).makes_links;
}

Links Tree::own_links_in(const Links& links, const std::string& unit) const
{
    Names names = is_indirect(unit) ? with_also(unit) : Names{unit};
    std::map<std::string, std::string> targets = m_targets;
    for (const Link& link : links) {
        if (link.path == base_name(link.path)) {
            targets[link.path] = base_name(link.target);
        }
    }
    add_aliases(names, targets);
    return links_to(names, links);
}

/// Follows links inside of the root folder.
fs::path Tree::resolve(fs::path path) const
{
    for (int links = 0; links < 40; ++links) {
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        if (error || target == "/dev/null") {
            return error ? path : target;
        }
        path = target.is_absolute() ? m_root / target.relative_path() : path.parent_path() / target;
    }
    return {};
}

/// The file of the unit or of its template. Empty if there is none.
fs::path Tree::file_of(const std::string& unit) const
{
    for (const char* const folder : unit_folders) {
        fs::path file = resolve(m_root / folder / entry_of(unit));
        std::error_code error;
        if (fs::exists(file, error) && !fs::is_directory(file, error)) {
            return file;
        }
    }
    return {};
}

/// The unit's file and its drop-ins. Of drop-ins of one name, that of the first folder counts.
std::vector<fs::path> Tree::files_of(const std::string& unit) const
{
    std::map<std::string, fs::path> drop_ins;
    for (const char* const folder : unit_folders) {
        for (const std::string& name : {unit, template_of(unit)}) {
            if (name.empty()) {
                continue; // no instance
            }
            for (const fs::directory_entry& entry : entries(m_root / folder / (name + ".d"))) {
                if (entry.path().extension() == ".conf") {
                    drop_ins.emplace(entry.path().filename(), resolve(entry.path()));
                }
            }
        }
    }
    std::vector<fs::path> files = {file_of(unit)};
    for (const auto& [name, file] : drop_ins) {
        files.push_back(file);
    }
    return files;
}

Tree::Install Tree::install_of(const std::string& unit) const
{
    Install install;
    for (const fs::path& path : files_of(unit)) {
        std::ifstream file(path);
        bool is_install = false;
        for (std::string line; read_line(file, line);) {
            line.replace(std::min(line.find('='), line.size()), 1, " ");
            std::istringstream words(line);
            std::string key;
            words >> key;
            const Names values(std::istream_iterator<std::string>(words), {});
            if (key[0] == '[') {
                is_install = key == "[Install]";
            } else if (is_install && key == "Also") {
                install.also.insert(values.begin(), values.end());
            } else if (is_install && (key == "Alias" || key == "WantedBy" || key == "RequiredBy" ||
                                      key == "UpheldBy")) {
                install.makes_links = install.makes_links || !values.empty();
            }
        }
    }
    return install;
}

/// The unit, its aliases, and the units of Also=, until nothing is new.
Names Tree::with_also(const std::string& unit) const
{
    Names names = {unit};
    for (std::size_t before = 0; before != names.size();) {
        before = names.size();
        add_aliases(names, m_targets);
        for (const std::string& name : Names(names)) {
            for (const std::string& also : install_of(name).also) {
                if (!is_masked(also)) {
                    const std::string target = alias_target(also);
                    names.insert(target.empty() ? also : target);
                }
            }
        }
    }
    return names;
}

} // namespace systemd
