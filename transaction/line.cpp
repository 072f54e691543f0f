#include "transaction/line.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace transaction
{

namespace
{

constexpr std::array<const char*, 5> words = {"off", "switching-off", "switching-on", "partly",
                                              "ignored"};

} // namespace

const char* to_word(State state)
{
    return words[static_cast<std::size_t>(state)];
}

bool from_word(const std::string& word, State& state)
{
    const auto* const found = std::find(words.begin(), words.end(), word);
    state = static_cast<State>(found - words.begin());
    return found != words.end();
}

std::string now()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm utc = {};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

bool is_recordable(const std::string& name)
{
    return !name.empty() && name[0] != '#' && std::all_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) > ' ' && c != 0x7F;
    });
}

bool is_level(const std::string& level)
{
    return level == "on" ||
           (!level.empty() && level.find_first_not_of("012345") == std::string::npos);
}

bool includes(const std::string& live, const std::string& levels)
{
    return live == "on" || levels == "on" || levels.find_first_not_of(live) == std::string::npos;
}

std::string on_in(const std::string& levels)
{
    return levels == "on" ? "with xinetd" : "in " + levels;
}

std::string unite(const std::string& levels, const std::string& other)
{
    if (levels == "on" || other == "on") {
        return levels;
    }
    std::string all;
    for (char digit = '0'; digit <= '5'; ++digit) {
        if ((levels + other).find(digit) != std::string::npos) {
            all += digit;
        }
    }
    return all;
}

} // namespace transaction
