// optimize_host: calls the operations of a module from the command line.
#include "host/call.h"
#include "host/module.h"
#include "host/printer.h"
#include "host/xml_document.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr const char* help =
    R"(Usage: optimize_host [--module FILE] [--json] OPERATION [ARGUMENT...]

Loads an Optimize_Option module, calls one of its operations, and prints the replies as they arrive.
The module works on ./config/system_operation/conf.xml and on the chkconfig and sed of the search
path; what these print goes to standard error.

Operations:
  attributes                     the interface's name, id and description
  operations                     the interface's operations
  ls_service                     list the candidate services and their states
  optimize_service ID...         switch services off
  restore_service ID...          switch them back on
  ignore_service on|off ID...    mark services as ignored, or take the mark away
  get_optimize_sorce             read the score
  set_optimize_sorce SCORE       write the score
  get_optimize_num               read the count
  ls_reg, ls_other, ...          the interface's other operations take what their likes above take

Options:
  -m, --module FILE   the module (default: rpc_ireal_Optimize_Option.so beside this program)
  -j, --json          print one JSON object a line
  -h, --help          print this help
  -V, --version       print the version

Exit status: 0 success, 1 the operation answered failure, 2 wrong usage, 3 no module or no reply.
)";

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

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

/// What an operation takes goes by the first word of its name.
host::Arguments to_arguments(const std::string& operation, const std::vector<std::string>& words)
{
    const auto begins_with = [&operation](std::string_view word) {
        return operation.compare(0, word.size(), word) == 0;
    };
    host::Arguments arguments;
    auto word = words.begin();
    const auto next = [&](const char* what) -> const std::string& {
        if (word == words.end()) {
            throw UsageError(operation + ": " + what + " is missing");
        }
        return *word++;
    };
    if (begins_with("set_")) {
        arguments.value = to_number(next("the value"));
    }
    if (begins_with("ignore_")) {
        arguments.flag = to_flag(next("on or off"));
    }
    if (begins_with("ignore_") || begins_with("optimize_") || begins_with("restore_")) {
        arguments.ids = {to_number(next("the id"))};
        while (word != words.end()) {
            arguments.ids->push_back(to_number(*word++));
        }
    }
    if (word != words.end()) {
        throw UsageError(operation + ": '" + *word + "' is one argument too many");
    }
    return arguments;
}

struct Options {
    std::string module;
    bool json = false;
    std::string operation;
    std::vector<std::string> words;
};

std::string default_module()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, length < 0 ? 0 : static_cast<std::size_t>(length));
    return program.substr(0, program.rfind('/') + 1) + "rpc_ireal_Optimize_Option.so";
}

/// False when everything asked for has been printed.
bool parse(int argc, char** argv, Options& options)
{
    static const option long_options[] = {{"module", required_argument, nullptr, 'm'},
                                          {"json", no_argument, nullptr, 'j'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {"version", no_argument, nullptr, 'V'},
                                          {nullptr, 0, nullptr, 0}};
    options.module = default_module();
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
            std::fputs(help, stdout);
            return false;
        case 'V':
            std::puts("optimize_host " PROJECT_VERSION);
            return false;
        case ':':
            throw UsageError(std::string(argv[optind - 1]) + ": the argument is missing");
        default:
            throw UsageError(std::string(argv[optind - 1]) + ": no such option");
        }
    }
    if (optind == argc) {
        throw UsageError("the operation is missing");
    }
    options.operation = argv[optind];
    options.words.assign(argv + optind + 1, argv + argc);
    return true;
}

void complain(const std::string& text)
{
    std::fprintf(stderr, "optimize_host: %s\n", text.c_str());
}

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// What standard output was. Standard output itself becomes standard error, since the module and
/// its commands print to it.
File take_standard_output()
{
    std::fflush(stdout);
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); // not for commands
    File out(copy < 0 ? nullptr : fdopen(copy, "w"));
    if (!out || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
    }
    return out;
}

ExitStatus run(const Options& options, rpc::IIfaceRealize& interface, host::Printer& printer)
{
    ex_std::vector<const rpc::IIfaceRealize::FAtt*> operations;
    interface.fatts(operations);
    if (options.operation == "attributes") {
        printer.attributes(*interface.iatt());
        return success;
    }
    if (options.operation == "operations") {
        for (const rpc::IIfaceRealize::FAtt* const operation : operations) {
            printer.operation(*operation);
        }
        return success;
    }
    ec::EC result = 0;
    const owned<host::Message> reply = host::call(
        interface, options.operation, to_arguments(options.operation, options.words),
        [&printer](const host::Message& item) { printer.item(item); }, result);
    printer.end(result, reply.get());
    if (!reply) {
        const bool known =
            std::any_of(operations.begin(), operations.end(),
                        [&](const auto* entry) { return entry->name == options.operation; });
        complain(options.operation + (known ? ": no reply" : ": no such operation"));
        return no_reply;
    }
    if (!ec::succeeded(reply->code())) {
        const std::string reason = host::take_last_xml_error();
        complain(options.operation + ": " + (reason.empty() ? "failed" : reason));
        return operation_failed;
    }
    return success;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        Options options;
        if (!parse(argc, argv, options)) {
            return success;
        }
        to_arguments(options.operation, options.words); // before anything is loaded
        const File out = take_standard_output();
        const std::unique_ptr<host::Printer> printer =
            options.json ? host::json_printer(out.get()) : host::table_printer(out.get());
        const host::Module module(options.module);
        const ExitStatus status = run(options, module.interface(), *printer);
        if (std::fflush(out.get()) != 0 || std::ferror(out.get()) != 0) {
            throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
        }
        return status;
    } catch (const UsageError& error) {
        complain(std::string(error.what()) + "; see optimize_host --help");
        return wrong_usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return no_reply;
    }
}
