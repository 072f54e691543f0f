#include "host/signals.h"

namespace host
{

namespace
{

constexpr std::array<int, 4> stopping = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

} // namespace

void prepare_signals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
}

IgnoredSignals::IgnoredSignals()
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    for (std::size_t i = 0; i < stopping.size(); ++i) {
        sigaction(stopping[i], &ignore, &m_earlier[i]);
    }
}

IgnoredSignals::~IgnoredSignals()
{
    for (std::size_t i = 0; i < stopping.size(); ++i) {
        sigaction(stopping[i], &m_earlier[i], nullptr);
    }
}

} // namespace host
