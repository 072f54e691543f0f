#include "host/standard_streams.h"

#include "fwbase/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace host
{

namespace
{

/// Opens a copy of a standard stream, which the module's commands do not inherit.
File copy_stream(int stream, const char* mode, const char* name)
{
    const int copy = fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    File file(copy < 0 ? nullptr : fdopen(copy, mode));
    if (!file) {
        fail(name);
    }
    return file;
}

} // namespace

void complain(const std::string& text)
{
    std::fprintf(stderr, "optimize_host: %s\n", fwbase::printable(text).c_str());
}

void fail(const std::string& subject)
{
    throw std::runtime_error(subject + ": " + std::strerror(errno));
}

File take_standard_output()
{
    std::fflush(stdout);
    File out = copy_stream(STDOUT_FILENO, "w", output_name);
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        fail("standard error");
    }
    return out;
}

File take_standard_input()
{
    File in = copy_stream(STDIN_FILENO, "r", input_name);
    const File nothing(std::fopen("/dev/null", "r"));
    if (!nothing || dup2(fileno(nothing.get()), STDIN_FILENO) < 0) {
        fail("/dev/null");
    }
    return in;
}

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

void require_written(std::FILE* out)
{
    if (std::fflush(out) != 0 || std::ferror(out) != 0) {
        throw OutputError(std::string(output_name) + ": " + std::strerror(errno));
    }
}

void require_reader(std::FILE* out)
{
    struct pollfd state = {fileno(out), 0, 0};
    if (poll(&state, 1, 0) > 0 && (state.revents & (POLLERR | POLLHUP)) != 0) {
        throw OutputError(std::string(output_name) + ": nobody reads it any more");
    }
}

std::optional<std::size_t> columns_of(std::FILE* out)
{
    struct winsize size = {};
    if (isatty(fileno(out)) == 0 || ioctl(fileno(out), TIOCGWINSZ, &size) != 0 ||
        size.ws_col == 0) {
        return std::nullopt;
    }
    return size.ws_col;
}

bool is_colored(std::FILE* out)
{
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(fileno(out)) != 0 && (refused == nullptr || *refused == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

} // namespace host
