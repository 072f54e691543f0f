#include "host/options.h"

#include "host/module.h"
#include "host/operation.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <iterator>
#include <sstream>
#include <string_view>

namespace host
{

const char* const installed_directory = INSTALLED_DIRECTORY;

namespace
{

constexpr const char* all_services = "--all";
constexpr const char* short_options = ":C:m:jnw:hV";
enum LongOption : int { full = 256, all, no_units }; // options without a letter
constexpr option long_options[] = {{"directory", required_argument, nullptr, 'C'},
                                   {"module", required_argument, nullptr, 'm'},
                                   {"json", no_argument, nullptr, 'j'},
                                   {"dry-run", no_argument, nullptr, 'n'},
                                   {"wait", required_argument, nullptr, 'w'},
                                   {"no-units", no_argument, nullptr, no_units},
                                   {"full", no_argument, nullptr, full},
                                   {"all", no_argument, nullptr, all},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, 'V'},
                                   {nullptr, 0, nullptr, 0}};

bool to_flag(const std::string& text)
{
    if (text != "on" && text != "off") {
        throw UsageError("'" + text + "' is neither on nor off");
    }
    return text == "on";
}

/// Says why getopt_long refused an option. `word` is the argument before optind, which holds the
/// option unless it is one of several letters in a word.
std::string refusal_of(const std::string& word)
{
    if (optopt == 0) {
        return word + ": no such option";
    }
    if (optopt >= full || std::strchr("CmjnwhV", optopt) != nullptr) {
        // optopt is a known letter, so its long option was given an argument it does not take.
        return word + ": takes no argument";
    }
    return std::string("-") + static_cast<char>(optopt) + ": no such option";
}

/// Takes an option that getopt_long found. Throws UsageError.
void take_option(int letter, const char* word, Options& options)
{
    switch (letter) {
    case 'C':
        options.directory = optarg;
        break;
    case 'm':
        options.module = optarg;
        break;
    case 'j':
        options.json = true;
        break;
    case 'n':
        options.is_rehearsal = true;
        break;
    case 'w':
        options.wait = to_number(optarg, "--wait: ");
        break;
    case no_units:
        options.uses_units = false;
        break;
    case full:
        options.is_full = true;
        break;
    case all:
        options.words.emplace_back(all_services);
        break;
    case 'h':
        options.task = Options::Task::help;
        break;
    case 'V':
        options.task = Options::Task::version;
        break;
    case ':':
        throw UsageError(std::string(word) + ": the argument is missing");
    default:
        throw UsageError(refusal_of(word));
    }
}

/// The arguments of a call: the words behind the operation.
class Words
{
public:
    explicit Words(const std::vector<std::string>& words)
        : m_next(words.begin() + 1), m_end(words.end())
    {
    }

    const std::string& next(const char* what)
    {
        require(what);
        return *m_next++;
    }
    /// The remaining words. Throws UsageError if none is left.
    std::vector<std::string> rest(const char* what)
    {
        require(what);
        std::vector<std::string> words(m_next, m_end);
        m_next = m_end;
        return words;
    }
    bool are_left() const { return m_next != m_end; }

private:
    void require(const char* what) const
    {
        if (m_next == m_end) {
            throw UsageError(std::string(what) + " is missing");
        }
    }

    std::vector<std::string>::const_iterator m_next;
    std::vector<std::string>::const_iterator m_end;
};

void take_services(const std::vector<std::string>& services, bool are_ids, Call& call)
{
    std::vector<unsigned int> ids;
    for (const std::string& service : services) {
        if (service.empty()) {
            throw UsageError("'' is not a name or an id of a service");
        }
        if (are_ids || is_id(service)) {
            ids.push_back(to_number(service));
        }
    }
    if (ids.size() == services.size()) {
        call.arguments.ids = ids;
    } else {
        call.services = services;
    }
}

void require_name(const std::string& name)
{
    if (name.empty() || is_id(name)) {
        throw UsageError("'" + name +
                         (name.empty() ? "' is not a name" : "' is an id, not a name"));
    }
}

void take_arguments(std::string_view usage, Words& words, Call& call)
{
    const auto takes = [usage](const char* what) {
        return usage.find(what) != std::string_view::npos;
    };
    if (takes("SCORE")) {
        call.arguments.value = to_number(words.next("the score"));
    }
    if (takes("on|off")) {
        call.arguments.flag = to_flag(words.next("on or off"));
    }
    if (call.is_for_all) {
        if (!takes(all_services)) {
            throw UsageError("takes no --all");
        }
    } else if (takes("ID") || takes("SERVICE")) {
        take_services(words.rest(takes("ID") ? "the id" : "the service"), takes("ID"), call);
    } else if (takes("NAME...")) {
        call.services = words.rest("the name");
    } else if (takes("NAME")) {
        call.services = {words.next("the name")};
        while (words.are_left()) {
            call.description += (call.description.empty() ? "" : " ") + words.next("");
        }
    }
    if (takes("NAME")) {
        for (const std::string& name : call.services) {
            require_name(name);
        }
    }
    if (words.are_left()) {
        throw UsageError("'" + words.next("") + "' is one argument too many");
    }
}

} // namespace

std::string help()
{
    std::string text =
        R"(Usage: optimize_host [OPTION...] OPERATION [ARGUMENT...]
       optimize_host [OPTION...] -      read calls from standard input

Lists, switches off and restores services through an Optimize_Option module.
A SERVICE is a name or an id of ls_service.

)";
    for (const Operation& each : all_operations()) {
        if (each.summary != nullptr) {
            const std::string usage = std::string("  ") + each.name + each.arguments;
            text += usage + std::string(37 - usage.size(), ' ') + each.summary + '\n';
        }
    }
    return text + R"(
  -C, --directory DIR    work in DIR; without it, here if a configuration is
                         here, else in )" INSTALLED_DIRECTORY R"(
  -m, --module FILE      load FILE instead of the installed module
  -j, --json             print one JSON object per line
  -n, --dry-run          only say what would be changed
  -w, --wait SECONDS     give up if another call does not end in time
      --no-units         leave the units of systemd alone
      --full             do not cut the rows of a table to the terminal
  -h, --help             print this help
  -V, --version          print the version

Examples: optimize_host optimize_service cups rsync
          printf 'ignore_service on atd\nls_service\n' | optimize_host --json -
Exit: 0 success, 1 operation failed, 2 wrong usage, 3 no module, lock or output
)";
}

void parse_options(int argc, char** argv, Options& options)
{
    options.module = installed_module();
    opterr = 0;
    std::optional<UsageError> first_error;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;) {
        try {
            take_option(letter, argv[optind - 1], options);
        } catch (const UsageError& error) {
            first_error = first_error.value_or(error);
        }
    }
    if (first_error) {
        throw UsageError(*first_error);
    }
    if (options.task != Options::Task::call) {
        return;
    }
    options.words.insert(options.words.begin(), argv + optind, argv + argc);
    if (options.words.empty() || options.words[0] == all_services) {
        throw UsageError("the operation is missing");
    }
    if (options.words[0] == "-") {
        options.task = Options::Task::calls_from_input;
        if (options.words.size() > 1) {
            throw UsageError("'" + options.words[1] + "' is one argument too many");
        }
    }
}

bool is_id(const std::string& word)
{
    return !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
}

rpc::int32 to_number(const std::string& text, const char* subject)
{
    errno = 0;
    const unsigned long long number = is_id(text) ? std::strtoull(text.c_str(), nullptr, 10) : 0;
    if (!is_id(text) || errno != 0 || number > UINT32_MAX) {
        throw UsageError(subject + ("'" + text) + "' is not a number from 0 to 4294967295");
    }
    return static_cast<rpc::int32>(number);
}

Call to_call(std::vector<std::string> words)
{
    Call call{words.front(), {}};
    const std::string usage = call.operation + find_operation(call.operation).arguments;
    const auto end = std::remove(words.begin() + 1, words.end(), all_services);
    call.is_for_all = end != words.end();
    words.erase(end, words.end());
    try {
        Words arguments(words);
        take_arguments(usage.substr(call.operation.size()), arguments, call);
    } catch (const UsageError& error) {
        throw UsageError(call.operation + ": " + error.what() + "; usage: " + usage);
    }
    return call;
}

std::vector<std::string> split(const std::string& line)
{
    if (line.find('\0') != std::string::npos) {
        throw UsageError("a NUL byte in the line");
    }
    std::istringstream words(line);
    std::vector<std::string> list{std::istream_iterator<std::string>(words), {}};
    if (!list.empty() && list[0][0] == '#') {
        list.clear();
    }
    return list;
}

} // namespace host
