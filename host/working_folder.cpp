#include "host/working_folder.h"

#include "host/configuration_path.h"
#include "host/options.h"
#include "host/standard_streams.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace host
{

namespace
{

const std::string& installed_configuration()
{
    static const std::string path = std::string(installed_directory) + (configuration_path + 1);
    return path;
}

/// Whether nothing is at the path, not even a link that leads nowhere.
bool is_missing(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// Whether others than the owner can write the file, or create files in the folder.
bool is_shared(const struct stat& status)
{
    return (status.st_mode & S_IWOTH) != 0 ||
           ((status.st_mode & S_IWGRP) != 0 && status.st_gid != getegid());
}

/// Follows a path from `folder` on, with all links in it. Returns the first file or folder on the
/// way that another user can change or create; empty if there is none.
fs::path find_foreign(const fs::path& path, fs::path folder = {})
{
    for (const fs::path& part : path) {
        fs::path next = folder / part;
        struct stat status = {};
        if (lstat(next.c_str(), &status) != 0) { // the rest is missing
            return stat(folder.c_str(), &status) == 0 && is_shared(status) ? folder : "";
        }
        if (status.st_uid != geteuid()) {
            return next;
        }
        if (S_ISLNK(status.st_mode)) {
            if (stat(next.c_str(), &status) != 0 && errno == ELOOP) {
                return next;
            }
            fs::path foreign = find_foreign(fs::read_symlink(next), folder);
            if (!foreign.empty()) {
                return foreign;
            }
        } else if (is_shared(status) &&
                   !(S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) {
            return next; // in a sticky folder, users can change only their own files
        }
        folder = next;
    }
    return {};
}

} // namespace

void enter_working_folder(const std::optional<std::string>& directory)
{
    if (directory) {
        if (chdir(directory->c_str()) != 0) {
            fail("'" + *directory + "'");
        }
        return;
    }
    if (is_missing(configuration_path) && !is_missing(installed_configuration()) &&
        chdir(installed_directory) != 0) {
        fail(installed_directory);
    }
    // The configuration may be missing, and another user may create it later.
    const fs::path foreign = geteuid() == 0 ? find_foreign(configuration_path) : "";
    if (!foreign.empty()) {
        const fs::path here = fs::current_path();
        std::string named = (here / foreign).lexically_normal().string();
        named.erase(std::max<std::size_t>(named.find_last_not_of('/') + 1, 1));
        throw std::runtime_error(named +
                                 ": another user can change it; to work in this folder all the "
                                 "same, add -C " +
                                 here.string());
    }
}

std::string missing_configuration()
{
    if (!is_missing(configuration_path)) {
        return "";
    }
    std::error_code ignored;
    const std::string here = (fs::current_path(ignored) / (configuration_path + 2)).string();
    const std::string text = "no configuration: there is no " + here;
    return is_missing(installed_configuration()) ? text + " and no " + installed_configuration()
                                                 : text;
}

std::string for_people(std::string reason)
{
    std::error_code ignored;
    const std::string relative = configuration_path;
    const std::string absolute = (fs::current_path(ignored) / (configuration_path + 2)).string();
    for (std::size_t at = 0; (at = reason.find(relative, at)) != std::string::npos;) {
        reason.replace(at, relative.size(), absolute);
        at += absolute.size();
    }
    const auto is_reason = [&reason](int number) {
        return reason.find(std::strerror(number)) != std::string::npos;
    };
    const bool lacks_rights = is_reason(EACCES) || is_reason(EPERM) ||
                              reason.find("belongs to another user") != std::string::npos;
    const char* const advice = "; run as root";
    const bool has_advice = reason.find(advice) != std::string::npos;
    return reason + (lacks_rights && !has_advice && geteuid() != 0 ? advice : "");
}

} // namespace host
