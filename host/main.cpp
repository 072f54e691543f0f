// optimize_host: calls the operations of a module from the command line.
#include "fwbase/text.h"
#include "fwbase/xml_document.h"
#include "host/module.h"
#include "host/options.h"
#include "host/printer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using host::Call;
using host::Options;
using host::UsageError;

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

constexpr const char* input_name = "standard input";
constexpr const char* output_name = "standard output";

/// Prints one line to standard error, with control characters replaced.
void complain(const std::string& text)
{
    std::fprintf(stderr, "optimize_host: %s\n", fwbase::printable(text).c_str());
}

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void fail(const char* stream)
{
    throw std::runtime_error(std::string(stream) + ": " + std::strerror(errno));
}

/// Duplicates a standard stream; the module's commands do not inherit the copy.
File copy_stream(int stream, const char* mode, const char* name)
{
    const int copy = fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    File file(copy < 0 ? nullptr : fdopen(copy, mode));
    if (!file) {
        fail(name);
    }
    return file;
}

/// Redirects standard output to standard error, because the module and its commands print to it.
/// Returns the original stream, to which the replies are printed.
File take_standard_output()
{
    std::fflush(stdout);
    File out = copy_stream(STDOUT_FILENO, "w", output_name);
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        fail("standard error");
    }
    return out;
}

/// Redirects standard input from /dev/null, so that a command that reads its input does not consume
/// the calls. Returns the original stream, from which the calls are read.
File take_standard_input()
{
    File in = copy_stream(STDIN_FILENO, "r", input_name);
    const File nothing(std::fopen("/dev/null", "r"));
    if (!nothing || dup2(fileno(nothing.get()), STDIN_FILENO) < 0) {
        fail("/dev/null");
    }
    return in;
}

/// If stderr is closed, opens /dev/null there, so that no file opened later becomes descriptor 2.
void open_standard_error()
{
    if (fcntl(STDERR_FILENO, F_GETFD) < 0) {
        const int nothing = open("/dev/null", O_WRONLY);
        if (nothing < 0 || dup2(nothing, STDERR_FILENO) < 0) {
            fail("/dev/null");
        }
        if (nothing != STDERR_FILENO) {
            close(nothing);
        }
    }
}

/// Flushes the stream; throws if any of its output could not be written.
void require_written(std::FILE* out)
{
    if (std::fflush(out) != 0 || std::ferror(out) != 0) {
        fail(output_name);
    }
}

bool is_colored(std::FILE* out)
{
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(fileno(out)) != 0 && (refused == nullptr || *refused == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

/// The requested ids that were not handled, each after a blank. `handled` is in the order of the
/// request.
std::string missing_ids(const std::vector<unsigned int>& asked,
                        const std::vector<unsigned int>& handled)
{
    std::string text;
    auto next = handled.begin();
    for (const unsigned int id : asked) {
        if (next != handled.end() && *next == id) {
            ++next;
        } else {
            text += " " + std::to_string(id);
        }
    }
    return text;
}

/// Runs one call. `origin` says where the call was read and precedes every message.
ExitStatus run(const Call& call, const std::string& origin, rpc::IIfaceRealize& interface,
               host::Printer& printer)
{
    ex_std::vector<const rpc::IIfaceRealize::FAtt*> operations;
    interface.fatts(operations);
    if (call.operation == "attributes") {
        printer.attributes(*interface.iatt());
        return success;
    }
    if (call.operation == "operations") {
        for (const rpc::IIfaceRealize::FAtt* const operation : operations) {
            printer.operation(*operation);
        }
        return success;
    }
    std::vector<unsigned int> handled;
    const auto on_item = [&](const fwbase::Message& item) {
        for (const owned<fwbase::Param>& param : item.all()) {
            if (param->type() == rpc::T_UINT32_LIST) {
                handled.insert(handled.end(), param->numbers().begin(), param->numbers().end());
            }
        }
        printer.item(item);
    };
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    ec::EC result = 0;
    const owned<fwbase::Message> reply =
        host::run_call(interface, *host::make_call_block(call), on_item, result);
    printer.end(result, reply.get());

    const std::string subject = origin + call.operation + ": ";
    if (!reply) {
        const bool known =
            std::any_of(operations.begin(), operations.end(),
                        [&call](const auto* entry) { return entry->name == call.operation; });
        complain(subject + (known ? "no reply" : "no such operation"));
        return no_reply;
    }
    if (!ec::succeeded(reply->code())) {
        constexpr const char* no_reason =
            "failed: the configuration lacks the element, or chkconfig cannot be started";
        const std::string reason = fwbase::take_last_xml_error();
        complain(subject + (reason.empty() ? no_reason : reason));
        return operation_failed;
    }
    if (call.arguments.ids) {
        const std::string missing = missing_ids(*call.arguments.ids, handled);
        if (!missing.empty()) {
            complain(subject + "not handled:" + missing);
        }
    }
    return success;
}

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

/// Runs the call on each line and returns the highest status. The answers to a call are written
/// before the next call is read.
ExitStatus run_lines(std::FILE* in, std::FILE* out, rpc::IIfaceRealize& interface,
                     host::Printer& printer)
{
    ExitStatus worst = success;
    Line line;
    for (int number = 1; line.read(in); ++number) {
        const std::string origin = input_name + (":" + std::to_string(number)) + ": ";
        ExitStatus status = success;
        try {
            const std::vector<std::string> words = host::split(line.text());
            if (!words.empty()) {
                status = run(host::to_call(words), origin, interface, printer);
            }
        } catch (const UsageError& error) {
            complain(origin + error.what());
            printer.refused(error.what());
            status = wrong_usage;
        }
        worst = std::max(worst, status);
        require_written(out);
    }
    if (std::ferror(in) != 0) {
        fail(input_name);
    }
    return worst;
}

ExitStatus run(const Options& options)
{
    // Check the words before loading the module.
    const bool from_input = options.task == Options::Task::calls_from_input;
    const Call call = from_input ? Call() : host::to_call(options.words);
    const File in = from_input ? take_standard_input() : nullptr;
    const File out = take_standard_output();
    const std::unique_ptr<host::Printer> printer =
        options.json ? host::json_printer(out.get())
                     : host::table_printer(out.get(), is_colored(out.get()));
    const host::Module module(options.module);
    const ExitStatus status = from_input
                                  ? run_lines(in.get(), out.get(), module.interface(), *printer)
                                  : run(call, "", module.interface(), *printer);
    require_written(out.get());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        open_standard_error();
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
        require_written(stdout);
        return success;
    } catch (const UsageError& error) {
        complain(std::string(error.what()) + "; see optimize_host --help");
        return wrong_usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return no_reply;
    }
}
