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

/// Runs the call in a line or on the command line, and prints why it is not one.
template <class GetWords>
ExitStatus run_call(GetWords get_words, const std::string& origin, host::CallRunner& runner,
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
                         run_call([&line] { return host::split(line); }, origin, runner, printer));
        host::require_written(out);
    }
    if (std::ferror(in) != 0) {
        host::fail(host::input_name);
    }
    return worst;
}

ExitStatus run(const Options& options)
{
    const bool from_input = options.task == Options::Task::calls_from_input;
    const File in = from_input ? host::take_standard_input() : nullptr;
    const File out = host::take_standard_output();
    const std::unique_ptr<host::Printer> printer =
        options.json ? host::json_printer(out.get()) : host::table_printer(out.get(), stderr);
    // Relative paths start at the present working directory.
    const host::Module module(options.module);
    host::make_search_path_absolute();
    try {
        host::enter_working_folder(options.directory);
    } catch (const std::runtime_error& error) {
        printer->refused(error.what());
        throw;
    }
    host::CallRunner runner(module.interface(), *printer, options.is_rehearsal);
    const ExitStatus status =
        from_input ? run_lines(in.get(), out.get(), runner, *printer)
                   : run_call([&options] { return options.words; }, "", runner, *printer);
    host::require_written(out.get());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    // gettext prefers it to LC_ALL, with which the module asks chkconfig for English words.
    unsetenv("LANGUAGE");
    try {
        host::prepare_signals();
        host::open_standard_error();
        const Options options = host::parse_options(argc, argv);
        switch (options.task) {
        case Options::Task::help:
            std::fputs(host::help, stdout);
            break;
        case Options::Task::version:
            std::puts("optimize_host " PROJECT_VERSION);
            break;
        default:
            return run(options);
        }
        host::require_written(stdout);
        return host::success;
    } catch (const UsageError& error) {
        complain(std::string(error.what()) + "; see optimize_host --help");
        return host::wrong_usage;
    } catch (const std::bad_alloc&) {
        complain("out of memory");
        return host::no_reply;
    } catch (const std::exception& error) {
        complain(error.what());
        return host::no_reply;
    }
}
