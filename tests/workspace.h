// A temporary working directory with its own configuration file and commands, and calls as text.
#pragma once

#include "host/call.h"

#include <gmock/gmock.h>
#include <string>

/// Changes to a temporary directory, whose bin/ is first on the search path, and removes it in the
/// end. bin/ holds stand-ins for chkconfig and sed, so that no test reaches those of the system.
/// `chkconfig --list` prints the file "listing". Every other command prints "done", and fails if
/// its arguments contain a line of the file "failing". Switches are logged in the file "log".
/// Throws std::runtime_error if programs cannot run there.
class Workspace : public testing::Test
{
protected:
    static constexpr const char* conf_path = "config/system_operation/conf.xml";

    Workspace();
    ~Workspace() override;

    /// Copies the embedded machine here, with its own chkconfig and sed.
    static void install_machine();

    /// Writes a configuration with the score 85, the count 3 and the given <info> elements.
    static void write_conf(const std::string& infos);
    static void write(const std::string& path, const std::string& text);
    static std::string read(const std::string& path);
    /// Runs a command and returns its exit status. The files "output" and "errors" are what it
    /// printed.
    static int shell(const std::string& command);

private:
    std::string m_directory;
};

/// A new block with these bytes.
owned<fwbase::IDataBlock> raw_block(const std::string& bytes);

/// The call in a line such as "ignore_service on 1 2" or "set_optimize_sorce 7".
host::Call to_call(const std::string& line);

/// Runs the call in a line. Returns the values in its replies, then how it ended: "1 6 success",
/// "3 cups desc 0 success", "failure".
std::string call(rpc::IIfaceRealize& interface, const std::string& line);
