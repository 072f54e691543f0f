#include "host/scratch_folder.h"

#include "host/standard_streams.h"

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace host
{

namespace
{

std::string make_folder()
{
    std::string path = fs::absolute(fs::temp_directory_path() / "optimize_host.XXXXXX");
    if (mkdtemp(path.data()) == nullptr) {
        fail(path);
    }
    return path;
}

} // namespace

ScratchFolder::ScratchFolder() : m_path(make_folder()), m_visit(m_path) {}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

} // namespace host
