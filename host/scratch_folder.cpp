#include "host/scratch_folder.h"

#include "host/standard_streams.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>

namespace fs = std::filesystem;

namespace host
{

namespace
{

std::string temporary_folder()
{
    const char* const folder = std::getenv("TMPDIR");
    return folder == nullptr || *folder == '\0' ? "/tmp" : folder;
}

} // namespace

ScratchFolder::ScratchFolder()
    : m_earlier(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)),
      m_path(temporary_folder() + "/optimize_host.XXXXXX")
{
    if (!m_earlier.is_open()) {
        fail("the working directory");
    }
    if (mkdtemp(m_path.data()) == nullptr) {
        fail(m_path);
    }
    if (chdir(m_path.c_str()) != 0) {
        rmdir(m_path.c_str());
        fail(m_path);
    }
}

ScratchFolder::~ScratchFolder()
{
    // If this fails, the module finds no configuration any more and reports that.
    static_cast<void>(fchdir(m_earlier.get()) == 0);
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

} // namespace host
