#include "transaction/record.h"

#include "transaction/private_file.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>

namespace transaction
{

namespace
{

constexpr const char* heading =
    "# Services that were switched off or ignored: name, state, run levels, since\n";
constexpr std::size_t largest = std::size_t{16} << 20U; // in bytes; the same for the configuration

bool is_time(const std::string& text)
{
    const std::string shape = "0000-00-00T00:00:00Z";
    return text.size() == shape.size() &&
           std::equal(text.begin(), text.end(), shape.begin(), [](char given, char wanted) {
               return wanted == '0' ? given >= '0' && given <= '9' : given == wanted;
           });
}

/// Adds a line of the file. Returns what is wrong with it, or null.
const char* add(const std::string& text, Lines& lines)
{
    std::istringstream fields(text);
    std::string name;
    std::string state;
    Line line;
    fields >> name >> state >> line.levels >> line.since;
    const bool is_valid =
        text == name + ' ' + state + ' ' + line.levels + ' ' + line.since && is_recordable(name) &&
        from_word(state, line.state) && is_time(line.since) &&
        (line.state == State::ignored ? line.levels == "-" : is_level(line.levels));
    if (!is_valid) {
        return "not a valid line";
    }
    return lines.emplace(name, line).second ? nullptr : "a second line of the same name";
}

} // namespace

Lines Record::read()
{
    Lines lines;
    const PrivateFile file(m_folder, m_path, O_RDONLY);
    if (!file) {
        return lines;
    }
    m_text = file.read(largest);
    std::istringstream text(m_text);
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        const char* const fault = line.rfind('#', 0) == 0 ? nullptr : add(line, lines);
        if (fault != nullptr) {
            throw std::runtime_error(m_path + ":" + std::to_string(number) + ": " + fault);
        }
    }
    return lines;
}

void Record::write(const Lines& lines)
{
    std::string text = heading;
    for (const auto& [name, line] : lines) {
        text += name + ' ' + to_word(line.state) + ' ' + line.levels + ' ' + line.since + '\n';
    }
    if (text != m_text && !(m_text.empty() && lines.empty())) {
        replace_file(m_folder, m_path, text);
        m_text = text;
    }
}

} // namespace transaction
