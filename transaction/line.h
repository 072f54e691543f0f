// What the record says of services, by name.
#pragma once

#include <map>
#include <string>

namespace transaction
{

/// What the record says of a service.
enum class State {
    off,           ///< switched off; to be restored
    switching_off, ///< a command that switches it off may have run
    switching_on,  ///< a command that restores it may have run
    partly,        ///< on again, but not in all of its levels
    ignored        ///< left alone until the mark is removed
};

struct Line {
    State state;
    std::string levels; ///< in which it was on: digits from 0 to 5, or "on"; "-" if it is ignored
    std::string since;  ///< UTC, such as "2026-11-25T10:17:10Z"
};

/// Lines by name of service.
using Lines = std::map<std::string, Line>;

/// The word for a state in the file, such as "switching-off".
const char* to_word(State state);
/// Returns false if no state has this word; `state` is unspecified then.
bool from_word(const std::string& word, State& state);

/// The present time, for Line::since.
std::string now();

/// Whether a line can hold the name: it has no blank or control character and no '#' in front.
bool is_recordable(const std::string& name);

/// Whether a service can have been on in these levels: they are digits from 0 to 5, or "on".
bool is_level(const std::string& level);

/// Whether a service that is on in `live` is on in all of `levels`. "on" and digits include each
/// other, because a service can change its kind.
bool includes(const std::string& live, const std::string& levels);

/// For people: "in 2345", or "with xinetd".
std::string on_in(const std::string& levels);

/// All levels of both; the first one if one of them is "on".
std::string unite(const std::string& levels, const std::string& other);

} // namespace transaction
