#include "host/working_folder.h"

#include "host/configuration.h"
#include "host/options.h"
#include "host/standard_streams.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace host
{

namespace
{

const std::string& installed_configuration()
{
    static const std::string path = std::string(installed_directory) + (configuration_path + 1);
    return path;
}

/// Nothing is there, not even a link that leads nowhere.
bool is_missing(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// A link is its owner's choice of a file.
bool is_foreign(const std::string& path)
{
    struct stat link = {};
    struct stat file = {};
    return (lstat(path.c_str(), &link) == 0 && link.st_uid != geteuid()) ||
           (stat(path.c_str(), &file) == 0 && file.st_uid != geteuid());
}

} // namespace

void enter_working_folder(const std::optional<std::string>& directory)
{
    if (directory) {
        if (chdir(directory->c_str()) != 0) {
            fail(*directory);
        }
    } else if (is_missing(configuration_path)) {
        if (!is_missing(installed_configuration()) && chdir(installed_directory) != 0) {
            fail(installed_directory);
        }
    } else if (geteuid() == 0 && is_foreign(configuration_path)) {
        throw std::runtime_error(std::string(configuration_path) +
                                 ": belongs to another user; to use it all the same, add -C .");
    }
}

std::string missing_configuration()
{
    if (!is_missing(configuration_path)) {
        return "";
    }
    std::error_code ignored;
    const std::string here =
        (std::filesystem::current_path(ignored) / (configuration_path + 2)).string();
    const std::string text = "no configuration: there is no " + here;
    return is_missing(installed_configuration()) ? text + " and no " + installed_configuration()
                                                 : text;
}

} // namespace host
