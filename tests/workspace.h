// A temporary working directory with its own configuration file and commands, and calls as text.
#pragma once

#include "host/options.h"

#include <gtest/gtest.h>
#include <string>

/// Works in a directory of its own, whose bin/ is at the front of the search path.
class Workspace : public testing::Test
{
protected:
    static constexpr const char* conf_path = "config/system_operation/conf.xml";

    Workspace();
    ~Workspace() override;

    /// Puts commands into bin/ that append their command line and "done" to the file "ran", print
    /// "done", and fail with a line of the file "failing"; a listing is the file "listing".
    static void install_stand_ins();
    /// Copies the embedded machine.
    static void install_machine();

    /// Writes a configuration with the score 85, the count 3 and the given <info> elements.
    static void write_conf(const std::string& infos);
    static void write(const std::string& path, const std::string& text);
    static std::string read(const std::string& path);

private:
    std::string m_directory;
};

/// A block of these bytes.
owned<fwbase::IDataBlock> raw_block(const std::string& bytes);

/// Runs a call; the words that optimize_host prints, less the headings and the usual codes, e.g.
/// "1 6 success", "3 cups 0 none desc success", "failure", "no reply (result 0x040C0001)".
std::string call(rpc::IIfaceRealize& interface, const host::Call& call);
/// The same for a line, e.g. "ignore_service on 1 2".
std::string call(rpc::IIfaceRealize& interface, const std::string& line);
