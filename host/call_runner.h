// Runs the calls of the command line, one after the other.
#pragma once

#include "host/answer.h"
#include "host/call.h"
#include "host/operation.h"
#include "host/printer.h"

namespace host
{

class CallRunner
{
public:
    /// Borrows the module and the printer. `waiting` is for the lock of each call. With
    /// `is_rehearsal`, a call that would change something only says what.
    CallRunner(rpc::IIfaceRealize& interface, Printer& printer, transaction::Waiting waiting,
               bool is_rehearsal)
        : m_interface(interface), m_printer(printer), m_waiting(std::move(waiting)),
          m_is_rehearsal(is_rehearsal)
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

    rpc::IIfaceRealize& m_interface;
    Printer& m_printer;
    transaction::Waiting m_waiting;
    bool m_is_rehearsal;
};

} // namespace host
