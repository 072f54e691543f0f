#include "host/search_path.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <paths.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace host
{

namespace
{

/// The folders of a search path; an empty entry is the working directory.
std::vector<std::string> folders_of(const std::string& path)
{
    std::vector<std::string> folders;
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find(':', start), path.size());
        folders.push_back(start == end ? "." : path.substr(start, end - start));
        start = end + 1;
    }
    return folders;
}

bool is_executable(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

} // namespace

bool is_on_search_path(const std::string& command)
{
    const char* const path = std::getenv("PATH");
    const std::vector<std::string> folders = folders_of(path == nullptr ? _PATH_STDPATH : path);
    return std::any_of(folders.begin(), folders.end(), [&command](const std::string& folder) {
        return is_executable(folder + "/" + command);
    });
}

void make_search_path_absolute()
{
    const char* const path = std::getenv("PATH");
    if (path == nullptr) {
        return;
    }
    std::string absolute;
    for (const std::string& folder : folders_of(path)) {
        absolute += (absolute.empty() ? "" : ":") + std::filesystem::absolute(folder).string();
    }
    setenv("PATH", absolute.c_str(), 1);
}

} // namespace host
