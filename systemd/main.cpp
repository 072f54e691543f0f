// chkconfig for machines that run systemd. It lists and switches units; everything else is left to
// the next chkconfig on the search path.
#include "systemd/listing.h"
#include "systemd/process.h"
#include "systemd/switching.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* root = "/";

int print_list(const std::string& tool)
{
    const systemd::Outcome listing = systemd::list(root, tool);
    if (!(std::cout << listing.output << std::flush)) {
        throw std::runtime_error("cannot write the list to standard output");
    }
    return listing.status;
}

void switch_unit(const std::string& unit, const std::string& levels, const std::string& state)
{
    if (levels.empty() || levels.find_first_not_of("0123456") != std::string::npos ||
        (state != "on" && state != "off")) {
        throw std::runtime_error("usage: chkconfig --level LEVELS NAME on|off; LEVELS are digits "
                                 "from 0 to 6 and mean nothing for a unit");
    }
    (state == "on" ? systemd::switch_on : systemd::switch_off)(root, unit);
}

/// Leaves the call to another chkconfig. `name` is that of the service; empty if the call has none.
[[noreturn]] void replace_by(const std::string& tool, const std::string& name, char** arguments)
{
    if (tool.empty() && !name.empty()) {
        throw std::runtime_error(name + ": there is no such unit, and no other chkconfig on the "
                                        "search path to switch it");
    }
    if (tool.empty()) {
        throw std::runtime_error("usage: chkconfig --list | --level LEVELS NAME on|off; for other "
                                 "calls, no other chkconfig is on the search path");
    }
    execv(tool.c_str(), arguments);
    throw std::runtime_error(tool + ": cannot start: " + std::strerror(errno));
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGCHLD, SIG_DFL); // if it is ignored, the exit statuses of commands are lost
    umask(S_IWGRP | S_IWOTH);
    try {
        const std::vector<std::string> words(argv, argv + argc);
        const std::string tool = systemd::next_program("chkconfig", "/proc/self/exe");
        if (argc == 2 && words[1] == "--list") {
            return print_list(tool);
        }
        const std::string name = argc == 5 && words[1] == "--level" ? words[3] : "";
        const std::string unit = name.empty() ? "" : systemd::find_unit(root, name);
        if (unit.empty()) {
            replace_by(tool, name, argv);
        }
        switch_unit(unit, words[2], words[4]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "chkconfig: " << error.what() << '\n';
        return 1;
    }
}
