#include "host/search_path.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace host
{

bool is_on_search_path(const std::string& command)
{
    // Some shells also find files that cannot be executed. Unlike system(), popen() leaves the
    // signals of the terminal alone.
    std::FILE* const shell = popen(("test -x \"$(command -v " + command + ")\"").c_str(), "r");
    return shell != nullptr && pclose(shell) == 0;
}

void make_search_path_absolute()
{
    const char* const path = std::getenv("PATH");
    if (path == nullptr) {
        return;
    }
    std::istringstream folders(path + std::string(":")); // the last entry may be empty
    std::string absolute;
    for (std::string folder; std::getline(folders, folder, ':');) {
        // An empty entry is the working directory.
        absolute += (absolute.empty() ? "" : ":") +
                    std::filesystem::absolute(folder.empty() ? "." : folder).string();
    }
    setenv("PATH", absolute.c_str(), 1);
}

} // namespace host
