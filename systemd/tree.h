// The unit files of a machine and the links that enable them.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace systemd
{

using Names = std::set<std::string>;

/// A link in the folder of the administrator, /etc/systemd/system.
struct Link {
    std::string path;   ///< "NAME" or "FOLDER/NAME", from that folder
    std::string target; ///< as the link spells it
};

using Links = std::vector<Link>;

/// The folder of the administrator's links.
std::filesystem::path links_folder(const std::filesystem::path& root);

/// Whether links in a subfolder of that name enable units.
bool is_for_links(const std::string& subfolder);

/// The units of the machine whose files are below a root folder. Read once; later changes are not
/// seen. Names are those of unit files, with suffix.
class Tree
{
public:
    /// Throws std::filesystem::filesystem_error if a folder cannot be read.
    explicit Tree(const std::filesystem::path& root);

    /// Whether there is an entry for the unit, or for its template.
    bool has(const std::string& unit) const { return !entry_of(unit).empty(); }
    bool is_masked(const std::string& unit) const { return target_of(unit) == "null"; }
    /// The other name that an alias links to. Empty if the unit is no alias.
    std::string alias_target(const std::string& unit) const;
    /// Whether the unit has a file: the target of a linked unit file may be gone.
    bool has_file(const std::string& unit) const { return !file_of(unit).empty(); }
    /// The names of all entries.
    Names names() const;

    const Links& links() const { return m_links; }
    /// The links of the unit, of its aliases, of the units that its [Install] section names in
    /// Also=, and so on. Links to /dev/null and linked unit files do not count.
    Links links_of(const std::string& unit) const;
    /// The links that enable the unit itself. An indirect unit without such links is enabled by
    /// those of the units in Also=. No link enables a masked unit.
    Links own_links_of(const std::string& unit) const;
    /// Whether the unit is a service with nothing but Also= in [Install].
    bool is_indirect(const std::string& unit) const;
    /// Those of the given links that would enable the unit.
    Links own_links_in(const Links& links, const std::string& unit) const;

private:
    struct Install {
        bool makes_links = false; ///< the unit can be enabled by links of its own
        Names also;
    };

    void read_units(const std::filesystem::path& folder);
    void read_links(const std::string& subfolder);
    std::string entry_of(const std::string& unit) const;
    std::string target_of(const std::string& unit) const;
    std::filesystem::path file_of(const std::string& unit) const;
    std::filesystem::path resolve(std::filesystem::path path) const;
    std::vector<std::filesystem::path> files_of(const std::string& unit) const;
    Install install_of(const std::string& unit) const;
    Names with_also(const std::string& unit) const;

    std::filesystem::path m_root;
    /// The name of each entry, and the base name of the link's target, or the same name if the
    /// entry is no link.
    std::map<std::string, std::string> m_targets;
    Links m_links;
};

} // namespace systemd
