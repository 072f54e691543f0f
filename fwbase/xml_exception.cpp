#include "framework/xml.h"
#include "fwbase/reply.h"

#include <utility>

namespace
{

thread_local bool is_ending = false;

/// The text of the thread's latest error. It is destroyed before exit handlers and the destructors
/// of static objects run: what fails there is not kept.
struct LastError {
    ~LastError() { is_ending = true; }
    std::string text;
};
thread_local LastError last_error;

/// The text on one line: each run of blanks and control characters becomes one blank, and is
/// removed at the ends.
std::string one_line(const std::string& text)
{
    std::string line;
    for (const char c : text) {
        if (static_cast<unsigned char>(c) > ' ') {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    line.resize(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

CLiteXmlException::CLiteXmlException(std::string file, int line, const std::string& reason)
    : m_what(std::move(file))
{
    if (line > 0) {
        m_what += (m_what.empty() ? "" : ":") + std::to_string(line);
    }
    const std::string text = one_line(reason);
    if (!text.empty()) {
        m_what += (m_what.empty() ? "" : ": ") + text;
    }
    if (!is_ending) {
        last_error.text = m_what;
    }
}

CLiteXmlException::~CLiteXmlException() = default;

const char* CLiteXmlException::what() const noexcept
{
    return m_what.c_str();
}

std::string fwbase::take_last_xml_error()
{
    return is_ending ? std::string() : std::exchange(last_error.text, std::string());
}
