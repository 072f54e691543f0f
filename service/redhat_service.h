// The machine's system services: the live list, and switching one service off or back on.
#pragma once

#include <map>
#include <string>

/// Live state of one service.
struct TServiceInfo {
    /// Run-level service: the digits of the run levels 0 to 5 in which it is on, ascending, or
    /// "off". xinetd service: its state word as listed, normally "on" or "off".
    std::string level;
    bool xinetd = false;
};

/// The live list: service name, as listed, to state.
class CServiceMap : public std::map<std::string, TServiceInfo>
{
};

/// Control of the machine's services. Each operation blocks while the command that it runs does.
/// They change or hand on the environment of the process, so the caller keeps a listing from
/// overlapping with another operation.
class ILinuxSystemService
{
public:
    /// A new service object for this machine, which the caller deletes; null without memory.
    static ILinuxSystemService* instance();

    /// Reads the live list and adds it to `services`, replacing entries of the same name. False
    /// when the listing command could not be started; one that prints nothing is no failure.
    ///
    /// While it runs, the environment variable LC_ALL of the whole process is "en_US"; afterwards
    /// it is absent, whatever it was before.
    virtual bool GetSystemServiceList(CServiceMap& services) = 0;
    /// Switches a service off in the given run levels, or, for xinetd, in its file. True when the
    /// command ran and exited with 0, and at once when `level` is "off".
    virtual bool OptimizeService(const std::string& name, const std::string& level,
                                 bool xinetd) = 0;
    /// Switches a service back on, likewise; the command is always run.
    virtual bool RestoreService(const std::string& name, const std::string& level, bool xinetd) = 0;

    virtual ~ILinuxSystemService() = default;
};

/// Red Hat style machines: chkconfig, and the service files of xinetd.
///
/// A switching command is written to standard output before it runs. Nothing is started, stopped or
/// reloaded. Refused, with false and no command, is a name or level that holds blanks, control
/// characters or what the shell interprets, or begins with '-', and an xinetd name that is no file
/// name.
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

/// Adds the service that one line of the listing describes, replacing an entry of the same name. A
/// line without a name, or an xinetd line without a state word that ends within the line, adds
/// nothing. A state word of a run level that is missing or malformed does not mark its level.
void AddListedService(const char* line, CServiceMap& services);
