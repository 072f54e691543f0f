// Runs the calls of the command line, one after the other.
#pragma once

#include "host/call.h"
#include "host/printer.h"

namespace host
{

enum ExitStatus : int { success = 0, operation_failed = 1, wrong_usage = 2, no_reply = 3 };

class CallRunner
{
public:
    /// Borrows both. With `is_rehearsal`, a call that would change services only says which.
    CallRunner(rpc::IIfaceRealize& interface, Printer& printer, bool is_rehearsal)
        : m_interface(interface), m_printer(printer), m_is_rehearsal(is_rehearsal)
    {
    }

    /// Runs one call, an operation with its arguments, and prints its answer. A call that changes
    /// the machine or the configuration waits for those of other processes, settles what an
    /// interrupted one has left, and cannot be interrupted by HUP, INT, QUIT or TERM. `origin` says
    /// where the call was read and precedes every message. Throws UsageError if the words are not a
    /// call.
    ExitStatus run(const std::vector<std::string>& words, const std::string& origin);

private:
    struct Answer;

    bool is_known(const std::string& operation) const;
    Answer make(const Call& call, const std::string& subject);
    Answer transact(const Call& call, const transaction::Say& say);
    void make_call(const Call& call, Answer& answer, std::vector<transaction::Reply>& replies);
    ExitStatus print(const Call& call, const Answer& answer, const std::string& subject);

    rpc::IIfaceRealize& m_interface;
    Printer& m_printer;
    bool m_is_rehearsal;
};

} // namespace host
