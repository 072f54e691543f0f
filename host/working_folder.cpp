#include "host/working_folder.h"

#include "host/configuration.h"
#include "host/options.h"
#include "host/standard_streams.h"

#include <cerrno>
#include <fcntl.h>
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

/// Whether somebody else can change what is at the path, or what is in that folder.
bool is_foreign(const struct stat& status)
{
    const bool by_others = (status.st_mode & S_IWOTH) != 0;
    const bool by_group = (status.st_mode & S_IWGRP) != 0 && status.st_gid != getegid();
    return status.st_uid != geteuid() ||
           (!S_ISLNK(status.st_mode) && (status.st_mode & S_ISVTX) == 0 && (by_others || by_group));
}

/// The first part of the way to the configuration that another user can change; empty if there is
/// none. A link is its owner's choice of a file.
std::string find_foreign()
{
    for (const char* const path :
         {".", "./config", "./config/system_operation", configuration_path}) {
        struct stat link = {};
        struct stat file = {};
        if ((lstat(path, &link) == 0 && is_foreign(link)) ||
            (stat(path, &file) == 0 && is_foreign(file))) {
            return path;
        }
    }
    return "";
}

} // namespace

void enter_working_folder(const std::optional<std::string>& directory)
{
    if (directory) {
        if (chdir(directory->c_str()) != 0) {
            fail("'" + *directory + "'");
        }
    } else if (is_missing(configuration_path)) {
        if (!is_missing(installed_configuration()) && chdir(installed_directory) != 0) {
            fail(installed_directory);
        }
    } else if (geteuid() == 0) {
        const std::string foreign = find_foreign();
        if (!foreign.empty()) {
            throw std::runtime_error(foreign + ": another user can change it; to work in this "
                                               "folder all the same, add -C .");
        }
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

FolderVisit::FolderVisit(const std::string& folder)
    : m_earlier(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC))
{
    if (!m_earlier.is_open() || chdir(folder.c_str()) != 0) {
        fail(folder);
    }
}

FolderVisit::~FolderVisit()
{
    // If this fails, the module finds no configuration any more and reports that.
    static_cast<void>(fchdir(m_earlier.get()) == 0);
}

} // namespace host
