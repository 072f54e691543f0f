#include "tests/workspace.h"

#include "fwbase/text.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;

Workspace::Workspace()
{
    static const std::string search_path = std::getenv("PATH");
    m_directory = (fs::temp_directory_path() / "optimize_option.XXXXXX").string();
    EXPECT_NE(mkdtemp(m_directory.data()), nullptr) << m_directory;
    fs::current_path(m_directory);
    fs::create_directories(fs::path(conf_path).parent_path());
    fs::create_directory("bin");
    setenv("PATH", (m_directory + "/bin:" + search_path).c_str(), 1);
    setenv("LC_ALL", "C", 1);
    setenv("OPTIMIZE_HOST_LOG", (m_directory + "/log").c_str(), 1);
    unsetenv("LANGUAGE");
    unsetenv("NO_COLOR");
    for (const char* const path : {"bin/chkconfig", "bin/sed"}) {
        write(path, "#!/bin/sh\n"
                    "[ \"$1\" != --list ] || { cat listing; exit; }\n"
                    "echo done\n"
                    "[ ! -s failing ] || ! printf %s \"$*\" | grep -qFf failing\n");
        fs::permissions(path, fs::perms::owner_all);
    }
    if (access("bin/sed", X_OK) != 0) { // the shell would run the commands of the system
        throw std::runtime_error("programs cannot run in " + m_directory);
    }
    write("listing", "");
}

Workspace::~Workspace()
{
    fs::current_path("/");
    fs::remove_all(m_directory);
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

int Workspace::shell(const std::string& command)
{
    const int status = std::system(("(" + command + ") >output 2>errors </dev/null").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

owned<fwbase::IDataBlock> raw_block(const std::string& bytes)
{
    fwbase::IDataBlock* block = nullptr;
    fwbase::IFWBase::instance()->mem_manager()->new_block(block,
                                                          static_cast<std::uint32_t>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), block->buffer());
    return owned<fwbase::IDataBlock>(block);
}

host::Call to_call(const std::string& line)
{
    host::Call call;
    std::istringstream words(line);
    words >> call.operation;
    for (std::string word; words >> word;) {
        if (word == "on" || word == "off") {
            call.arguments.flag = word == "on";
        } else if (const auto number = static_cast<unsigned int>(std::stoul(word));
                   call.operation.rfind("set_", 0) == 0) {
            call.arguments.value = number;
        } else {
            call.arguments.ids = call.arguments.ids.value_or(std::vector<unsigned int>());
            call.arguments.ids->push_back(number);
        }
    }
    return call;
}

std::string to_text(const std::vector<owned<fwbase::Param>>& params)
{
    std::string text;
    for (const owned<fwbase::Param>& param : params) {
        switch (param->type()) {
        case rpc::T_UINT32:
            text += std::to_string(param->number()) + " ";
            break;
        case rpc::T_UINT32_LIST:
            for (const unsigned int number : param->numbers()) {
                text += std::to_string(number) + " ";
            }
            break;
        case rpc::T_STRING:
            text += fwbase::gbk_to_utf8(param->text()) + " ";
            break;
        default:
            for (const owned<fwbase::Params>& record : param->records()) {
                text += to_text(record->all());
            }
        }
    }
    return text;
}

std::string call(rpc::IIfaceRealize& interface, const std::string& line)
{
    std::string answer;
    ec::EC result = 0;
    const auto reply = host::call_module(
        interface, *host::make_call_block(to_call(line)),
        [&answer](const fwbase::Message& item) { answer += to_text(item.all()); }, result);
    EXPECT_EQ(reply != nullptr, result == 0x840C0000) << line;
    answer += reply ? to_text(reply->all()) : "";
    return answer + (reply && ec::succeeded(reply->code()) ? "success" : "failure");
}
