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

const char* const help =
    R"(Usage: optimize_host [--module FILE] [--json] OPERATION [ARGUMENT...]
       optimize_host [--module FILE] [--json] -    read calls from standard input

Calls an Optimize_Option module on ./config/system_operation/conf.xml.

  ls_service                    list the candidate services and their states
  optimize_service ID...        switch services off
  restore_service ID...         switch them back on
  ignore_service on|off ID...   mark services as ignored, or remove the mark
  get_optimize_sorce            print the score
  set_optimize_sorce SCORE      set the score
  get_optimize_num              print the count
  attributes | operations       describe the interface | list all its operations

  -m, --module FILE             load FILE instead of the installed module
  -j, --json                    print one JSON object per line
  -h, --help  -V, --version     print this help, or the version

Examples: optimize_host ls_service
          optimize_host optimize_service 3 30
          printf 'ignore_service on 2\nls_service\n' | optimize_host --json -

Exit: 0 success, 1 operation failed, 2 wrong usage, 3 no module, reply or output
)";

namespace
{

rpc::int32 to_number(const std::string& text)
{
    const bool digits = !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return character >= '0' && character <= '9';
    });
    errno = 0;
    const unsigned long long number = digits ? std::strtoull(text.c_str(), nullptr, 10) : 0;
    if (!digits || errno != 0 || number > UINT32_MAX) {
        throw UsageError("'" + text + "' is not a number from 0 to 4294967295");
    }
    return static_cast<rpc::int32>(number);
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
    if (std::strchr("mjhV", optopt) != nullptr) {
        // optopt is a known letter, so its long option was given an argument it does not take.
        return word + ": takes no argument";
    }
    return std::string("-") + static_cast<char>(optopt) + ": no such option";
}

} // namespace

Options parse_options(int argc, char** argv)
{
    static const option long_options[] = {{"module", required_argument, nullptr, 'm'},
                                          {"json", no_argument, nullptr, 'j'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {"version", no_argument, nullptr, 'V'},
                                          {nullptr, 0, nullptr, 0}};
    Options options;
    options.module = installed_module();
    opterr = 0;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, "+:m:jhV", long_options, nullptr)) != -1;) {
        switch (letter) {
        case 'm':
            options.module = optarg;
            break;
        case 'j':
            options.json = true;
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

Call to_call(const std::vector<std::string>& words)
{
    auto word = words.begin();
    Call call{*word++, {}};
    if (call.operation.size() > UINT16_MAX) {
        throw UsageError("the operation's name is too long");
    }
    const auto begins_with = [&call](std::string_view start) {
        return call.operation.compare(0, start.size(), start) == 0;
    };
    const auto next = [&](const char* what) -> const std::string& {
        if (word == words.end()) {
            throw UsageError(call.operation + ": " + what + " is missing");
        }
        return *word++;
    };
    if (begins_with("set_")) {
        call.arguments.value = to_number(next("the value"));
    }
    if (begins_with("ignore_")) {
        call.arguments.flag = to_flag(next("on or off"));
    }
    if (begins_with("ignore_") || begins_with("optimize_") || begins_with("restore_")) {
        call.arguments.ids = {to_number(next("the id"))};
        while (word != words.end()) {
            call.arguments.ids->push_back(to_number(*word++));
        }
    }
    if (word != words.end()) {
        throw UsageError(call.operation + ": '" + *word + "' is one argument too many");
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
