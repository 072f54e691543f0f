#include "host/search_path.h"

#include <algorithm>
#include <filesystem>
#include <paths.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace host
{

namespace
{

/// The entries of a search path. An empty one stands for the working directory.
std::vector<fs::path> split(const std::string& path)
{
    std::istringstream entries(path + ":");
    std::vector<fs::path> folders;
    for (std::string entry; std::getline(entries, entry, ':');) {
        folders.emplace_back(entry.empty() ? "." : entry);
    }
    return folders;
}

} // namespace

std::string units_folder()
{
    const fs::path folder = UNITS_FOLDER;
    std::error_code ignored;
    const bool is_used = fs::is_directory("/run/systemd/system", ignored) &&
                         eaccess((folder / "chkconfig").c_str(), X_OK) == 0;
    return is_used ? folder.string() : "";
}

std::string complete_search_path(const char* path, const std::string& units)
{
    std::vector<fs::path> folders = split(path == nullptr ? _PATH_STDPATH : path);
    for (const char* const folder : {"/usr/sbin", "/sbin"}) {
        if (std::find(folders.begin(), folders.end(), folder) == folders.end()) {
            folders.emplace_back(folder);
        }
    }
    if (!units.empty()) {
        const auto is_systems = [](const fs::path& folder) {
            std::string name = folder.string();
            name.erase(name.find_last_not_of('/') + 1);
            return name == "/usr/local/sbin" || name == "/usr/sbin" || name == "/sbin" ||
                   name == "/usr/local/bin" || name == "/usr/bin" || name == "/bin";
        };
        folders.insert(std::find_if(folders.begin(), folders.end(), is_systems), units);
    }
    std::string absolute;
    for (const fs::path& folder : folders) {
        absolute += (absolute.empty() ? "" : ":") + fs::absolute(folder).string();
    }
    return absolute;
}

void require_command(const std::string& command, const std::string& search_path)
{
    const std::vector<fs::path> folders = split(search_path);
    const bool is_found =
        std::any_of(folders.begin(), folders.end(), [&command](const fs::path& folder) {
            std::error_code ignored;
            const fs::path file = folder / command;
            return fs::is_regular_file(file, ignored) && eaccess(file.c_str(), X_OK) == 0;
        });
    if (!is_found) {
        throw std::runtime_error("no " + command + " on the search path " + search_path);
    }
}

} // namespace host
