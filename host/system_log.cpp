#include "host/system_log.h"

#include "fwbase/text.h"
#include "host/standard_streams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

namespace host
{

void log_line(std::string text)
{
    char user[256];
    if (getlogin_r(user, sizeof user) == 0) {
        text += std::string(", by ") + user;
    }
    text = fwbase::printable(text);
    const char* const path = std::getenv("OPTIMIZE_HOST_LOG");
    if (path == nullptr || *path == '\0') {
        openlog("optimize_host", 0, LOG_DAEMON);
        syslog(LOG_NOTICE, "%s", text.c_str());
        return;
    }
    const File file(std::fopen(path, "ae"));
    if (!file || std::fprintf(file.get(), "optimize_host: %s\n", text.c_str()) < 0 ||
        std::fflush(file.get()) != 0) {
        complain(path + std::string(": cannot log: ") + std::strerror(errno));
    }
}

} // namespace host
