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

/// Reads lines of any length.
class Line
{
public:
    Line() = default;
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() { std::free(m_text); }

    /// Returns false at the end of the input and after an error.
    bool read(std::FILE* in) { return (m_length = getline(&m_text, &m_capacity, in)) >= 0; }
    std::string text() const { return {m_text, static_cast<std::size_t>(m_length)}; }

private:
    char* m_text = nullptr;
    std::size_t m_capacity = 0;
    ssize_t m_length = 0;
};

/// Runs the call in a line or on the command line, and prints why it is not one.
template <class GetWords>
ExitStatus run_call(GetWords get_words, const std::string& origin, rpc::IIfaceRealize& interface,
                    host::Printer& printer)
{
    try {
        const std::vector<std::string> words = get_words();
        return words.empty() ? host::success : host::run(words, origin, interface, printer);
    } catch (const UsageError& error) {
        complain(origin + error.what());
        printer.refused(error.what());
        return host::wrong_usage;
    }
}

/// Runs the call on each line and returns the highest status. The answers to a call are written
/// before the next call is read.
ExitStatus run_lines(std::FILE* in, std::FILE* out, rpc::IIfaceRealize& interface,
                     host::Printer& printer)
{
    ExitStatus worst = host::success;
    Line line;
    for (int number = 1; line.read(in); ++number) {
        const std::string origin = host::input_name + (":" + std::to_string(number)) + ": ";
        worst = std::max(worst, run_call([&line] { return host::split(line.text()); }, origin,
                                         interface, printer));
        host::require_written(out);
    }
    if (std::feof(in) == 0) { // an error, or a line for which there is no memory
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
    const host::Module module(options.module); // before its relative path changes its meaning
    host::make_search_path_absolute();
    try {
        host::enter_working_folder(options.directory);
    } catch (const std::runtime_error& error) {
        printer->refused(error.what());
        throw;
    }
    const ExitStatus status =
        from_input
            ? run_lines(in.get(), out.get(), module.interface(), *printer)
            : run_call([&options] { return options.words; }, "", module.interface(), *printer);
    host::require_written(out.get());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
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
