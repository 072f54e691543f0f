#include "host/search_path.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <paths.h>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace host
{

namespace
{

/// The folders of the search path, absolute. An empty entry is the working directory.
std::vector<fs::path> folders()
{
    const char* const path = std::getenv("PATH");
    std::istringstream entries((path == nullptr ? _PATH_STDPATH : path) + std::string(":"));
    std::vector<fs::path> all;
    for (std::string entry; std::getline(entries, entry, ':');) {
        all.push_back(fs::absolute(entry.empty() ? "." : entry));
    }
    return all;
}

} // namespace

bool is_on_search_path(const std::string& command)
{
    const std::vector<fs::path> all = folders();
    return std::any_of(all.begin(), all.end(), [&command](const fs::path& folder) {
        std::error_code ignored;
        const fs::path file = folder / command;
        return fs::is_regular_file(file, ignored) && eaccess(file.c_str(), X_OK) == 0;
    });
}

void make_search_path_absolute()
{
    std::string absolute;
    for (const fs::path& folder : folders()) {
        absolute += (absolute.empty() ? "" : ":") + folder.string();
    }
    setenv("PATH", absolute.c_str(), 1);
}

} // namespace host
