// Signals: a call that changes the machine is carried to its end.
#pragma once

#include <array>
#include <csignal>

namespace host
{

/// Ignores SIGPIPE, so that output that cannot be written is an error after the call, and sets
/// SIGCHLD to its default, without which no command's exit status is known.
void prepare_signals();

/// Ignores HUP, INT, QUIT and TERM during its lifetime, then restores their earlier dispositions.
/// Commands inherit ignored signals. Blocking them would not be enough: shells may unblock them.
class IgnoredSignals
{
public:
    IgnoredSignals();
    ~IgnoredSignals();
    IgnoredSignals(const IgnoredSignals&) = delete;
    IgnoredSignals& operator=(const IgnoredSignals&) = delete;

private:
    std::array<struct sigaction, 4> m_earlier = {};
};

} // namespace host
