#include "systemd/process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace systemd
{

std::string quoted(const std::string& text)
{
    std::string word = "'";
    for (const char character : text) {
        word += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return word + "'";
}

Outcome run(const std::string& command)
{
    std::FILE* const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command + ": " + std::strerror(errno));
    }
    std::string output;
    for (int character = std::getc(pipe); character != EOF; character = std::getc(pipe)) {
        output += static_cast<char>(character);
    }
    const int status = pclose(pipe);
    return {output, WIFEXITED(status) ? WEXITSTATUS(status) : 128};
}

Outcome systemctl(const std::string& root, const std::string& arguments)
{
    setenv("SYSTEMD_COLORS", "0", 1);
    setenv("SYSTEMCTL_SKIP_SYSV", "1", 1);
    return run("systemctl --root=" + quoted(root).append(" ") + arguments);
}

std::string next_program(const std::string& name, const std::string& self)
{
    struct stat own = {};
    if (stat(self.c_str(), &own) != 0) { // unknown: the program could start itself for ever
        throw std::runtime_error(self + ": " + std::strerror(errno));
    }
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    std::string next;
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string file = std::string(folder).append("/").append(name);
        struct stat status = {};
        if (folder[0] != '/' || stat(file.c_str(), &status) != 0) {
            continue;
        }
        if (status.st_dev == own.st_dev && status.st_ino == own.st_ino) {
            next.clear();
        } else if (next.empty() && S_ISREG(status.st_mode) && access(file.c_str(), X_OK) == 0) {
            next = file;
        }
    }
    return next;
}

} // namespace systemd
