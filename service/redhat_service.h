// The machine's services: listing them, and switching one off or back on.
#pragma once

#include <map>
#include <string>

/// Live state of one service.
struct TServiceInfo {
    /// For a run-level service, the digits of the run levels 0 to 5 in which it is on, ascending,
    /// or "off". For an xinetd service, its state word as listed, normally "on" or "off".
    std::string level;
    bool xinetd = false;
};

/// The live list. Maps the name of a service, as listed, to its state.
class CServiceMap : public std::map<std::string, TServiceInfo>
{
};

/// Lists and switches the machine's services. Each operation runs a command and blocks until it
/// exits. A listing changes the environment of the process, which every command inherits, so the
/// caller must not let a listing overlap with another operation.
class ILinuxSystemService
{
public:
    /// A new service object for this machine, which the caller deletes. Null if out of memory.
    static ILinuxSystemService* instance();

    /// Reads the live list and adds it to `services`, replacing entries of the same name. Returns
    /// false if the listing command could not be started. Returns true if it prints nothing.
    ///
    /// Sets the environment variable LC_ALL of the whole process to "en_US" during the listing and
    /// unsets it afterwards, whatever its value was before.
    virtual bool GetSystemServiceList(CServiceMap& services) = 0;
    /// Switches a service off: a run-level service in the run levels of `level`, an xinetd service
    /// in its file. Returns true if the command exited with 0. If `level` is "off", returns true
    /// without running a command.
    virtual bool OptimizeService(const std::string& name, const std::string& level,
                                 bool xinetd) = 0;
    /// Switches a service back on in the same way. Runs the command even if `level` is "off".
    virtual bool RestoreService(const std::string& name, const std::string& level, bool xinetd) = 0;

    virtual ~ILinuxSystemService() = default;
};

/// Services of Red Hat style machines, through chkconfig and the service files of xinetd.
///
/// Writes a switching command to standard output before it runs. Does not start, stop or reload
/// services. Returns false without running a command if a name or level contains blanks, control
/// characters or characters special to the shell, or begins with '-', or if an xinetd name is not a
/// valid file name.
class CRedhatService : public ILinuxSystemService
{
public:
    bool GetSystemServiceList(CServiceMap& services) override;
    bool OptimizeService(const std::string& name, const std::string& level, bool xinetd) override;
    bool RestoreService(const std::string& name, const std::string& level, bool xinetd) override;

    bool SetServiceOn(const std::string& name, const std::string& level);
    bool SetServiceOff(const std::string& name, const std::string& level);
    bool SetXinetServiceOn(const std::string& name);
    bool SetXinetServiceOff(const std::string& name);
};

/// Adds the service that one line of the listing describes, replacing an entry of the same name.
/// Ignores a line without a name. Ignores an xinetd line whose state word is missing or not
/// followed by white space, because it may have been cut off. Treats a missing or malformed
/// run-level word as off.
void AddListedService(const char* line, CServiceMap& services);
