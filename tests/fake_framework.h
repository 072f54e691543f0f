// The framework that the module's objects meet in the tests: it forwards to the reference host's
// objects, and makes one call fail on request.
#pragma once

#include "framework/rpc.h"
#include "host/message.h"

#include <string>
#include <vector>

namespace fake
{

/// Counts calls, and names the one that is to fail.
class Faults
{
public:
    Faults() { m_failed.reserve(64); } // no later allocation disturbs a test's balance
    /// Lets the n-th call from now on fail; 0: none.
    void arm(int n)
    {
        m_left = n;
        m_failed.clear();
    }
    /// Counts one call; true when it is to fail.
    bool strike(const char* call)
    {
        if (m_left == 0 || --m_left != 0) {
            return false;
        }
        m_failed = call;
        return true;
    }
    /// Name of the call that failed; empty when none did.
    const std::string& failed() const { return m_failed; }

private:
    int m_left = 0;
    std::string m_failed;
};

extern Faults rpc_faults; // null, zero, or a failure code
extern Faults xml_faults; // CLiteXmlException

/// What the XML objects were asked to do, in order: "load", "release root" and so on; a call
/// that failed has a "!" behind it.
extern std::vector<std::string> xml_calls;

struct LogEntry {
    std::uint32_t type;
    std::string text;
    std::string where;
};
extern std::vector<LogEntry> log_entries;

/// Code of a block that could not be made, and of an object that was not found.
constexpr ec::EC no_block = 0x04020001;
constexpr ec::EC not_found = 0x04010001;

/// Collects the replies that an operation sends while it runs.
class Command final : public rpc::ICommand
{
public:
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override;

    std::vector<owned<host::Message>> replies;
    int attempts = 0; ///< replies delivered or refused
};

} // namespace fake
