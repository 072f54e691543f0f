// A temporary working directory with its own configuration file and stand-in commands.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Works in a directory of its own, whose bin/ is at the front of the search path, and leaves the
/// process as it was.
class Workspace : public testing::Test
{
protected:
    static constexpr const char* conf_path = "config/system_operation/conf.xml";

    Workspace();
    ~Workspace() override;

    /// Puts commands into bin/ that append their command line to the file "ran" and exit with 1
    /// when it holds a line of the file "failing"; `chkconfig --list` prints the file "listing".
    static void install_stand_ins();

    /// Writes a configuration with the score 85, the count 3 and the given <info> elements.
    static void write_conf(const std::string& infos);

    static void write(const std::string& path, const std::string& text);
    static std::string read(const std::string& path);
    static bool exists(const std::string& path);

    /// The command lines that the stand-ins ran, with blanks folded.
    static std::vector<std::string> ran();

    const std::string& directory() const { return m_directory; }

private:
    std::string m_directory;
    std::string m_previous_directory;
    std::string m_previous_path;
};
