#include "service/redhat_service.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/// Words of a line, separated by white space.
class Words
{
public:
    explicit Words(std::string_view line) : m_rest(line) {}

    /// The next word, or an empty one if none is left.
    std::string_view next()
    {
        constexpr std::string_view blanks = " \t\n\v\f\r";
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(blanks), m_rest.size()));
        const std::string_view word = m_rest.substr(0, m_rest.find_first_of(blanks));
        m_rest.remove_prefix(word.size());
        return word;
    }

    /// The text after the last word taken.
    std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

/// Reads the line of a run-level service: the name, then words such as "0:off" and "1:on".
void add_run_level_service(Words words, CServiceMap& services)
{
    const std::string name(words.next());
    if (name.empty()) {
        return;
    }
    std::string level;
    for (char digit = '0'; digit <= '5'; ++digit) {
        const std::string_view word = words.next();
        if (word.size() >= 4 && word.substr(2, 2) == "on") {
            level += digit;
        }
    }
    services[name] = {level.empty() ? "off" : level, false};
}

/// Reads the line of an xinetd service: the name with a colon, then the state word. The heading of
/// the xinetd section reads as such a line, too, with the name "xinet".
void add_xinetd_service(Words words, CServiceMap& services)
{
    const std::string_view name = words.next();
    const std::string_view state = words.next();
    if (state.empty() || words.rest().empty()) {
        return; // the state is missing or may have been cut off
    }
    services[std::string(name.substr(0, name.size() - 1))] = {std::string(state), true};
}

/// Sets LC_ALL to "en_US" while it lives, so that children print English words; unsets it
/// afterwards.
class EnglishChildren
{
public:
    EnglishChildren() : m_is_set(setenv("LC_ALL", "en_US", 1) == 0) {}
    ~EnglishChildren() { unsetenv("LC_ALL"); }
    EnglishChildren(const EnglishChildren&) = delete;
    EnglishChildren& operator=(const EnglishChildren&) = delete;

    bool is_set() const { return m_is_set; }

private:
    bool m_is_set;
};

struct PipeCloser {
    void operator()(std::FILE* pipe) const noexcept { pclose(pipe); }
};

/// The next character, or EOF. A signal whose handler interrupts the read is not taken for the end.
int next_character(std::FILE* in)
{
    int character = std::getc(in);
    while (character == EOF && std::ferror(in) != 0 && errno == EINTR) {
        std::clearerr(in);
        character = std::getc(in);
    }
    return character;
}

/// Reads the next line with its end, or the next 255 bytes of a longer one. Returns false if
/// nothing is left. Reads by the character: after an interrupted fgets, the part of the line that
/// it had read would be lost.
bool read_line(std::FILE* in, std::string& line)
{
    constexpr std::size_t longest = 255;
    line.clear();
    while (line.size() < longest && (line.empty() || line.back() != '\n')) {
        const int character = next_character(in);
        if (character == EOF) {
            break;
        }
        line += static_cast<char>(character);
    }
    return !line.empty();
}

/// Whether the shell reads the text literally, as a word or part of one, and no command takes it
/// for an option. Keeps data from the configuration file from becoming shell code.
bool is_plain(std::string_view text)
{
    constexpr std::string_view interpreted = "'\"\\$&;|<>(){}[]*?~#!^=`";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte <= ' ' || byte == 0x7F || interpreted.find(character) != std::string_view::npos) {
            return false;
        }
    }
    return text.empty() || text.front() != '-';
}

/// Writes the command to standard output and runs it in the shell. Returns true if it exits with 0.
bool run(const std::string& command)
{
    std::puts(command.c_str());
    std::fflush(stdout);
    const int status = std::system(command.c_str());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool set_run_levels(const std::string& name, const std::string& level, const char* state)
{
    return is_plain(name) && is_plain(level) &&
           run("chkconfig --level " + level + " " + name + " " + state);
}

/// Flushes a file to the disk if that is possible.
void flush(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file != -1) {
        static_cast<void>(fsync(file));
        close(file);
    }
}

/// sed replaces the file but does not flush it. Saving the configuration could bring the new name
/// to the disk before the content: after a power failure the file would be empty.
bool set_xinetd_disable(const std::string& name, const char* disable)
{
    const bool is_file_name =
        !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
    const std::string path = "/etc/xinetd.d/" + name;
    const bool done =
        is_file_name && is_plain(name) &&
        run(std::string(R"(sed -i 's/\(^.*disable.*=.*\)\( .*$\)/\1 )") + disable + "/g' " + path);
    if (done) {
        flush(path);
    }
    return done;
}

} // namespace

void AddListedService(const char* line, CServiceMap& services)
{
    const Words words(line);
    if (std::strstr(line, "0:") != nullptr) {
        add_run_level_service(words, services);
    } else {
        add_xinetd_service(words, services);
    }
}

ILinuxSystemService* ILinuxSystemService::instance()
{
    return new (std::nothrow) CRedhatService;
}

bool CRedhatService::GetSystemServiceList(CServiceMap& services)
{
    // Only English words are understood. In other languages every service would read as off.
    const EnglishChildren english;
    const std::unique_ptr<std::FILE, PipeCloser> listing(
        english.is_set() ? popen("chkconfig --list 2> /dev/null", "r") : nullptr);
    if (!listing) {
        return false;
    }
    for (std::string line; read_line(listing.get(), line);) {
        AddListedService(line.c_str(), services);
    }
    return true;
}

bool CRedhatService::OptimizeService(const std::string& name, const std::string& level, bool xinetd)
{
    if (level == "off") {
        return true;
    }
    return xinetd ? SetXinetServiceOff(name) : SetServiceOff(name, level);
}

bool CRedhatService::RestoreService(const std::string& name, const std::string& level, bool xinetd)
{
    return xinetd ? SetXinetServiceOn(name) : SetServiceOn(name, level);
}

bool CRedhatService::SetServiceOn(const std::string& name, const std::string& level)
{
    return set_run_levels(name, level, "on");
}

bool CRedhatService::SetServiceOff(const std::string& name, const std::string& level)
{
    return set_run_levels(name, level, "off");
}

bool CRedhatService::SetXinetServiceOn(const std::string& name)
{
    return set_xinetd_disable(name, "no");
}

bool CRedhatService::SetXinetServiceOff(const std::string& name)
{
    return set_xinetd_disable(name, "yes");
}
