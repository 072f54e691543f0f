#include "tests/workspace.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

Workspace::Workspace()
{
    std::string pattern = (fs::temp_directory_path() / "optimize_option.XXXXXX").string();
    m_directory = mkdtemp(pattern.data());
    m_previous_directory = fs::current_path();
    m_previous_path = std::getenv("PATH");
    fs::current_path(m_directory);
    fs::create_directories(fs::path(conf_path).parent_path());
    fs::create_directories("bin");
    setenv("PATH", (m_directory + "/bin:" + m_previous_path).c_str(), 1);
}

Workspace::~Workspace()
{
    setenv("PATH", m_previous_path.c_str(), 1);
    fs::current_path(m_previous_directory);
    fs::remove_all(m_directory);
}

void Workspace::install_stand_ins()
{
    for (const char* const command : {"chkconfig", "sed"}) {
        const std::string path = std::string("bin/") + command;
        write(path, "#!/bin/sh\n"
                    "[ \"$1\" != --list ] || { cat listing; exit; }\n"
                    "printf '%s\\n' \"${0##*/} $*\" >>ran\n"
                    "[ ! -e failing ] || ! printf %s \"$*\" | grep -qFf failing\n");
        fs::permissions(path, fs::perms::owner_all);
    }
    write("listing", "");
    write("ran", "");
}

void Workspace::write_conf(const std::string& infos)
{
    write(conf_path, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<kavra_conf>\n"
                     "<myself_config><optimize_sorce>85</optimize_sorce>"
                     "<optimize_num>3</optimize_num></myself_config>\n"
                     "<service_optimize>" +
                         infos + "</service_optimize>\n</kavra_conf>\n");
}

void Workspace::write(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string Workspace::read(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool Workspace::exists(const std::string& path)
{
    return fs::exists(path);
}

std::vector<std::string> Workspace::ran()
{
    std::ifstream file("ran");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}
