#include "transaction/lock_holder.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace transaction
{

namespace
{

/// The device and inode of a file as /proc/locks gives them.
std::string identity_of(int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        return "";
    }
    char text[64];
    std::snprintf(text, sizeof text, "%02x:%02x:%ju", major(status.st_dev), minor(status.st_dev),
                  static_cast<std::uintmax_t>(status.st_ino));
    return text;
}

} // namespace

std::string holder_of(int file)
{
    const std::string wanted = identity_of(file);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        // "1: FLOCK ADVISORY WRITE 4711 fe:01:1234 0 EOF". The line of a process that waits has
        // "->" in place of FLOCK.
        std::istringstream fields(line);
        std::array<std::string, 6> field;
        for (std::string& each : field) {
            fields >> each;
        }
        const std::string& process = field[4];
        if (field[1] != "FLOCK" || field[5] != wanted) {
            continue;
        }
        std::string name;
        std::getline(std::ifstream("/proc/" + process + "/comm"), name);
        std::string text = name.empty() ? "; a command of process " : "; process ";
        text += process;
        text += name.empty() ? ", which has ended," : " (" + name + ")";
        return text + " holds the lock";
    }
    return "";
}

} // namespace transaction
