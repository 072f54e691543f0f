#include "host/scratch_folder.h"

#include "host/standard_streams.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace host
{

namespace
{

std::string make_folder()
{
    const char* const parent = std::getenv("TMPDIR");
    std::string path = fs::absolute(parent == nullptr || *parent == '\0' ? "/tmp" : parent) /
                       "optimize_host.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        fail(path);
    }
    return path;
}

} // namespace

ScratchFolder::ScratchFolder()
    : m_earlier(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)), m_path(make_folder())
{
    if (!m_earlier.is_open() || chdir(m_path.c_str()) != 0) {
        const int reason = errno;
        rmdir(m_path.c_str());
        errno = reason;
        fail(m_path);
    }
}

ScratchFolder::~ScratchFolder()
{
    // If this fails, the module does not find its configuration in the next call, and says so.
    static_cast<void>(fchdir(m_earlier.get()) == 0);
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

} // namespace host
