#include "systemd/process.h"

#include "framework/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace systemd
{

namespace
{

std::string read_all(int file)
{
    std::string text;
    char buffer[4096];
    for (ssize_t count = 1; count != 0;) {
        count = read(file, buffer, sizeof buffer);
        if (count < 0 && errno != EINTR) {
            throw std::runtime_error(std::string("cannot read a pipe: ") + std::strerror(errno));
        }
        text.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return text;
}

int wait_for(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return 127;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Outcome run(const std::vector<std::string>& words)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    const fwbase::Descriptor out(ends[0]);
    fwbase::Descriptor in(ends[1]);
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.get(), STDOUT_FILENO);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        std::cerr << "chkconfig: " << words[0] << ": cannot start: " << std::strerror(error)
                  << '\n';
        return {"", 127};
    }
    in = fwbase::Descriptor();
    std::string output = read_all(out.get());
    return {std::move(output), wait_for(child)};
}

Outcome systemctl(const std::vector<std::string>& arguments)
{
    setenv("SYSTEMD_COLORS", "0", 1);
    setenv("SYSTEMCTL_SKIP_SYSV", "1", 1);
    std::vector<std::string> words = {"systemctl"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run(words);
}

std::string next_program(const std::string& name, const std::string& self)
{
    struct stat own = {};
    stat(self.c_str(), &own);
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    std::string next;
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string file = folder + "/" + name;
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
