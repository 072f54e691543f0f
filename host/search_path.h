// The search path of commands.
#pragma once

#include <string>

namespace host
{

/// Whether a folder of PATH holds an executable file of that name.
bool is_on_search_path(const std::string& command);

/// Makes the relative entries of PATH absolute during its lifetime, so that they keep their meaning
/// when the working directory changes. Not for several threads. Throws std::exception.
class AbsoluteSearchPath
{
public:
    AbsoluteSearchPath();
    ~AbsoluteSearchPath();
    AbsoluteSearchPath(const AbsoluteSearchPath&) = delete;
    AbsoluteSearchPath& operator=(const AbsoluteSearchPath&) = delete;

private:
    bool m_was_set = false;
    std::string m_earlier;
};

} // namespace host
