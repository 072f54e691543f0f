#include "host/options.h"

#include "host/module.h"

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

const char* const help =
    R"(Usage: optimize_host [OPTION...] OPERATION [ARGUMENT...]
       optimize_host [OPTION...] -      read calls from standard input

Lists, switches off and restores services through an Optimize_Option module.
A SERVICE is a name or an id of ls_service.

  ls_service                         list the candidate services and their states
  optimize_service SERVICE...        switch services off
  restore_service SERVICE...         switch them back on
  ignore_service on|off SERVICE...   mark services as ignored, or remove the mark
  get_optimize_sorce | get_optimize_num    print the score, the count
  set_optimize_sorce SCORE           set the score
  attributes | operations            describe the interface | list all operations

  -C, --directory DIR    work in DIR, instead of here or )" INSTALLED_DIRECTORY R"(
  -m, --module FILE      load FILE instead of the installed module
  -j, --json             print one JSON object per line
  -n, --dry-run          only say which services would be changed
  -h, --help  -V, --version   print this help, or the version

Examples: optimize_host optimize_service cups rsync
          printf 'ignore_service on atd\nls_service\n' | optimize_host --json -
Exit: 0 success, 1 operation failed, 2 wrong usage, 3 no module, reply or output
)";

namespace
{

/// The arguments of the operations with a prefix.
struct Usage {
    std::string_view prefix;
    const char* arguments;
};

constexpr Usage usages[] = {{"set_", " NUMBER"},
                            {"ignore_service", " on|off SERVICE..."},
                            {"optimize_service", " SERVICE..."},
                            {"restore_service", " SERVICE..."},
                            {"ignore_", " on|off ID..."},
                            {"optimize_", " ID..."},
                            {"restore_", " ID..."},
                            {"", ""}};

bool begins_with(const std::string& text, std::string_view start)
{
    return text.compare(0, start.size(), start) == 0;
}

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
    if (std::strchr("CmjnhV", optopt) != nullptr) {
        // optopt is a known letter, so its long option was given an argument it does not take.
        return word + ": takes no argument";
    }
    return std::string("-") + static_cast<char>(optopt) + ": no such option";
}

} // namespace

Options parse_options(int argc, char** argv)
{
    static const option long_options[] = {{"directory", required_argument, nullptr, 'C'},
                                          {"module", required_argument, nullptr, 'm'},
                                          {"json", no_argument, nullptr, 'j'},
                                          {"dry-run", no_argument, nullptr, 'n'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {"version", no_argument, nullptr, 'V'},
                                          {nullptr, 0, nullptr, 0}};
    Options options;
    options.module = installed_module();
    opterr = 0;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, ":C:m:jnhV", long_options, nullptr)) != -1;) {
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
        case 'h':
            options.task = Options::Task::help;
            return options;
        case 'V':
            options.task = Options::Task::version;
            return options;
        case ':':
            throw UsageError(std::string(argv[optind - 1]) + ": the argument is missing");
        default:
            throw UsageError(refusal_of(argv[optind - 1]));
        }
    }
    options.words.assign(argv + optind, argv + argc);
    if (options.words.empty()) {
        throw UsageError("the operation is missing");
    }
    if (options.words[0] == "-") {
        options.task = Options::Task::calls_from_input;
        if (options.words.size() > 1) {
            throw UsageError("'" + options.words[1] + "' is one argument too many");
        }
    }
    return options;
}

bool is_id(const std::string& word)
{
    return !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
}

rpc::int32 to_number(const std::string& text)
{
    errno = 0;
    const unsigned long long number = is_id(text) ? std::strtoull(text.c_str(), nullptr, 10) : 0;
    if (!is_id(text) || errno != 0 || number > UINT32_MAX) {
        throw UsageError("'" + text + "' is not a number from 0 to 4294967295");
    }
    return static_cast<rpc::int32>(number);
}

Call to_call(const std::vector<std::string>& words)
{
    Call call{words.front(), {}};
    const std::string& operation = call.operation;
    const Usage& usage =
        *std::find_if(std::begin(usages), std::end(usages), [&operation](const Usage& each) {
            return begins_with(operation, each.prefix);
        });
    const std::string_view arguments = usage.arguments;
    const auto takes = [arguments](const char* what) {
        return arguments.find(what) != std::string_view::npos;
    };
    auto word = words.begin() + 1;
    const auto next = [&](const char* what) -> const std::string& {
        if (word == words.end()) {
            throw UsageError(std::string(what) + " is missing");
        }
        return *word++;
    };
    try {
        if (takes("NUMBER")) {
            call.arguments.value = to_number(next("the value"));
        }
        if (takes("on|off")) {
            call.arguments.flag = to_flag(next("on or off"));
        }
        if (takes("ID") || takes("SERVICE")) {
            next(takes("ID") ? "the id" : "the service");
            const std::vector<std::string> services(word - 1, words.end());
            word = words.end();
            std::vector<unsigned int> ids;
            for (const std::string& service : services) {
                if (service.empty()) {
                    throw UsageError("'' is no service");
                }
                if (takes("ID") || is_id(service)) {
                    ids.push_back(to_number(service));
                }
            }
            if (ids.size() == services.size()) {
                call.arguments.ids = ids;
            } else {
                call.services = services;
            }
        }
        if (word != words.end()) {
            throw UsageError("'" + *word + "' is one argument too many");
        }
    } catch (const UsageError& error) {
        throw UsageError(operation + ": " + error.what() + "; usage: " + operation +
                         usage.arguments);
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
