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
constexpr std::size_t largest = std::size_t{16} << 20U; // as of the configuration, in bytes

bool is_time(const std::string& text)
{
    const std::string shape = "0000-00-00T00:00:00Z";
    return text.size() == shape.size() &&
           std::equal(text.begin(), text.end(), shape.begin(), [](char given, char wanted) {
               return wanted == '0' ? given >= '0' && given <= '9' : given == wanted;
           });
}

/// Adds a line of the file. Returns false if it is none, or the second of its name.
bool add(const std::string& text, Lines& lines)
{
    std::istringstream fields(text);
    std::string name;
    std::string state;
    Line line;
    fields >> name >> state >> line.levels >> line.since;
    return text == name + ' ' + state + ' ' + line.levels + ' ' + line.since &&
           is_recordable(name) && from_word(state, line.state) && is_time(line.since) &&
           (line.state == State::ignored ? line.levels == "-" : is_level(line.levels)) &&
           lines.emplace(name, line).second;
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
        if (line.rfind('#', 0) != 0 && !add(line, lines)) {
            throw std::runtime_error(m_path + ":" + std::to_string(number) +
                                     ": not a valid line, or a second one of the same name");
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
