#include "tests/workspace.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

Workspace::Workspace()
{
    static const std::string search_path = std::getenv("PATH");
    m_directory = (fs::temp_directory_path() / "optimize_option.XXXXXX").string();
    EXPECT_NE(mkdtemp(m_directory.data()), nullptr);
    fs::current_path(m_directory);
    fs::create_directories(fs::path(conf_path).parent_path());
    fs::create_directory("bin");
    setenv("PATH", (m_directory + "/bin:" + search_path).c_str(), 1);
}

Workspace::~Workspace()
{
    fs::current_path("/");
    fs::remove_all(m_directory);
}

void Workspace::install_stand_ins()
{
    for (const char* const path : {"bin/chkconfig", "bin/sed"}) {
        write(path, "#!/bin/sh\n"
                    "[ \"$1\" != --list ] || { cat listing; exit; }\n"
                    "printf '%s\\n' \"${0##*/} $*\" >>ran\n"
                    "[ ! -e failing ] || ! printf %s \"$*\" | grep -qFf failing\n");
        fs::permissions(path, fs::perms::owner_all);
    }
    write("listing", "");
}

void Workspace::install_machine()
{
    fs::copy(SOURCE_DIR "/machine", ".",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

void Workspace::write_conf(const std::string& infos)
{
    write(conf_path, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<kavra_conf>\n<myself_config><optimize_sorce>85</optimize_sorce>"
                     "<optimize_num>3</optimize_num></myself_config>\n<service_optimize>" +
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

std::string outputs(const host::Message& message)
{
    std::ostringstream text;
    for (const owned<host::Param>& param : message.all()) {
        if (param->type() == rpc::T_UINT32) {
            text << " =" << param->number();
        } else if (param->type() == rpc::T_UINT32_LIST) {
            text << " ids";
            for (const unsigned int id : param->numbers()) {
                text << ' ' << id;
            }
        } else {
            text << " list";
            for (const owned<host::Params>& record : param->records()) {
                const auto& fields = record->all();
                text << ' ' << fields.at(0)->number() << ' ' << fields.at(3)->number() << ' '
                     << fields.at(1)->text() << ' ' << fields.at(2)->text();
            }
        }
    }
    return text.str();
}

std::string call(rpc::IIfaceRealize& interface, const std::string& line)
{
    std::istringstream words(line);
    std::string operation;
    words >> operation;
    host::Arguments arguments;
    arguments.ids.emplace(); // operations without ids overlook them
    for (std::string word; words >> word;) {
        if (word == "on" || word == "off") {
            arguments.flag = word == "on";
        } else {
            arguments.ids->push_back(static_cast<unsigned int>(std::stoul(word)));
        }
    }
    if (operation == "set_optimize_sorce") {
        arguments.value = arguments.ids->at(0);
    }
    std::ostringstream text;
    ec::EC result = 0;
    const auto add_item = [&](const host::Message& item) {
        text << "item" << outputs(item) << "; ";
    };
    const owned<host::Message> reply =
        host::call(interface, operation, arguments, add_item, result);
    EXPECT_EQ(reply != nullptr, result == 0x840C0000);
    char code[9];
    std::snprintf(code, sizeof code, "%08X", reply ? reply->code() : result);
    return text.str() + (reply ? code + outputs(*reply) : std::string("none ") + code);
}
