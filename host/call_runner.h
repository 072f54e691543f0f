// Runs the calls of the command line, one after the other.
#pragma once

#include "host/answer.h"
#include "host/call.h"
#include "host/operation.h"
#include "host/printer.h"

namespace host
{

/// How every call is made.
struct Manner {
    transaction::Waiting waiting;  ///< for the lock
    bool is_rehearsal = false;     ///< a call only says what it would change
    const char* list_command = ""; ///< the command that a message names after an empty listing
};

class CallRunner
{
public:
    /// Borrows the module and the printer.
    CallRunner(rpc::IIfaceRealize& interface, Printer& printer, Manner manner)
        : m_interface(interface), m_printer(printer), m_manner(std::move(manner))
    {
    }

    /// Runs one call, an operation with its arguments, and prints its answer. A call that writes
    /// waits for those of other processes, and cannot be interrupted by HUP, INT, QUIT or TERM once
    /// it has begun. `origin` says where the call was read and precedes every message. Throws
    /// UsageError if the words are not a call.
    ExitStatus run(const std::vector<std::string>& words, const std::string& origin);

private:
    bool is_known(const std::string& name) const;
    void describe(const std::string& name);
    Answer make(const Call& call, const transaction::Say& say);
    Answer make_writing(const Call& call, const transaction::Say& say);
    ExitStatus print(const Call& call, const Answer& answer, const transaction::Say& say);
    void tell_what_lacks(const Call& call, const Answer& answer, const transaction::Say& say) const;

    rpc::IIfaceRealize& m_interface;
    Printer& m_printer;
    Manner m_manner;
};

} // namespace host
