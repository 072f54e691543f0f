// optimize_host: calls the operations of a module from the command line.
#include "host/call_runner.h"
#include "host/module.h"
#include "host/options.h"
#include "host/search_path.h"
#include "host/signals.h"
#include "host/standard_streams.h"
#include "host/working_folder.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace
{

using host::complain;
using host::ExitStatus;
using host::File;
using host::Options;
using host::UsageError;

/// Reads a line of any bytes and length, without its end. Returns false at the end of the input and
/// after an error.
bool read_line(std::FILE* in, std::string& line)
{
    line.clear();
    int byte = 0;
    while ((byte = std::getc(in)) != EOF && byte != '\n') {
        line += static_cast<char>(byte);
    }
    return std::ferror(in) == 0 && (byte != EOF || !line.empty());
}

/// Runs the call in a line or on the command line. If the words are not a call, prints why.
template <class GetWords>
ExitStatus run_words(GetWords get_words, const std::string& origin, host::CallRunner& runner,
                     host::Printer& printer)
{
    try {
        const std::vector<std::string> words = get_words();
        return words.empty() ? host::success : runner.run(words, origin);
    } catch (const UsageError& error) {
        complain(origin + error.what());
        printer.refused(error.what());
        return host::wrong_usage;
    }
}

/// Runs the call on each line and returns the highest status. The answers to a call are written
/// before the next call is read.
ExitStatus run_lines(std::FILE* in, std::FILE* out, host::CallRunner& runner,
                     host::Printer& printer)
{
    ExitStatus worst = host::success;
    std::string line;
    for (int number = 1; read_line(in, line); ++number) {
        const std::string origin = host::input_name + (":" + std::to_string(number)) + ": ";
        worst = std::max(worst,
                         run_words([&line] { return host::split(line); }, origin, runner, printer));
        host::require_written(out);
    }
    if (std::ferror(in) != 0) {
        host::fail(host::input_name);
    }
    return worst;
}

/// Loads the module and runs the calls: that of the command line, or those of `in` unless it is
/// null.
ExitStatus serve(const Options& options, std::FILE* in, std::FILE* out)
{
    const std::unique_ptr<host::Printer> printer =
        options.json ? host::json_printer(out) : host::table_printer(out, stderr, options.is_full);
    // Relative paths start at the present working directory.
    const host::Module module(options.module);
    const std::string units = options.uses_units ? host::units_folder() : "";
    setenv("PATH", host::complete_search_path(std::getenv("PATH"), units).c_str(), 1);
    host::enter_working_folder(options.directory);
    host::Manner manner;
    manner.waiting.seconds = options.wait ? static_cast<long>(*options.wait) : -1;
    manner.waiting.check = [out] { host::require_reader(out); };
    manner.is_rehearsal = options.is_rehearsal;
    manner.list_command = units.empty() ? "chkconfig --list" : "systemctl list-unit-files";
    host::CallRunner runner(module.interface(), *printer, manner);
    const ExitStatus status =
        in != nullptr ? run_lines(in, out, runner, *printer)
                      : run_words([&options] { return options.words; }, "", runner, *printer);
    host::require_written(out);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    // gettext prefers LANGUAGE to LC_ALL, with which the module asks chkconfig for English words.
    unsetenv("LANGUAGE");
    Options options;
    File out; // standard output, as soon as that of the module was redirected to standard error
    const auto give_up = [&](const std::string& text, ExitStatus status) {
        const std::string reason = host::for_people(text);
        complain(reason);
        if (options.json) {
            host::json_printer(out ? out.get() : stdout)->refused(reason);
        }
        return status;
    };
    try {
        host::prepare_signals();
        host::open_standard_error();
        host::parse_options(argc, argv, options);
        if (options.task == Options::Task::help || options.task == Options::Task::version) {
            std::fputs(options.task == Options::Task::help ? host::help().c_str()
                                                           : "optimize_host " PROJECT_VERSION "\n",
                       stdout);
            host::require_written(stdout);
            return host::success;
        }
        const bool from_input = options.task == Options::Task::calls_from_input;
        const File in = from_input ? host::take_standard_input() : nullptr;
        out = host::take_standard_output();
        return serve(options, in.get(), out.get());
    } catch (const UsageError& error) {
        return give_up(std::string(error.what()) + "; see optimize_host --help", host::wrong_usage);
    } catch (const std::bad_alloc&) {
        return give_up("out of memory", host::no_reply);
    } catch (const std::exception& error) {
        return give_up(error.what(), host::no_reply);
    }
}
