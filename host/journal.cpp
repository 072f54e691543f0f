#include "host/journal.h"

#include "host/options.h"
#include "host/standard_streams.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace host
{

namespace
{

constexpr std::string_view end_mark = "\nend\n";

/// The bytes of a file from its start.
std::string read_all(int file, const std::string& path)
{
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = pread(file, buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (count < 0) {
            fail(path + ": cannot read");
        }
        if (count == 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

/// Whether the text may be a journal whose end was not written.
bool is_torn(const std::string& text)
{
    const std::string verb = text.substr(0, text.find(' '));
    return (std::string("optimize_service").compare(0, verb.size(), verb) == 0 ||
            std::string("restore_service").compare(0, verb.size(), verb) == 0) &&
           text.find_first_not_of("0123456789 \nend", verb.size()) == std::string::npos;
}

} // namespace

std::optional<Call> Journal::read() const
{
    const std::string text = read_all(m_lock.file(), m_lock.path());
    const std::size_t end = text.size() - std::min(text.size(), end_mark.size());
    const bool has_end = text.substr(end) == end_mark;
    if (!has_end && is_torn(text)) {
        return std::nullopt;
    }
    try {
        const std::vector<std::string> words = split(text.substr(0, end));
        const bool switches = has_end && !words.empty() &&
                              (words[0] == "optimize_service" || words[0] == "restore_service");
        if (switches && text.find('\n') == end) {
            Call call = to_call(words);
            if (call.services.empty()) {
                return call;
            }
        }
    } catch (const UsageError&) { // reported below
    }
    throw std::runtime_error("cannot complete an interrupted call: " + m_lock.path() +
                             ": not a journal; to give up, remove the file");
}

void Journal::write(const Call& call) const
{
    const std::string text = call.operation + to_text(*call.arguments.ids) + std::string(end_mark);
    clear();
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count =
            pwrite(m_lock.file(), text.data() + done, text.size() - done, static_cast<off_t>(done));
        if (count < 0) {
            fail(m_lock.path() + ": cannot write");
        }
        done += static_cast<std::size_t>(count);
    }
    if (fdatasync(m_lock.file()) != 0) {
        fail(m_lock.path() + ": cannot flush");
    }
}

void Journal::clear() const noexcept
{
    static_cast<void>(ftruncate(m_lock.file(), 0) == 0);
}

} // namespace host
