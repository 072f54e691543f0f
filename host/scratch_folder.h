// A scratch folder to work in.
#pragma once

#include "fwbase/descriptor.h"
#include "host/search_path.h"

#include <string>

namespace host
{

/// Creates a private temporary folder and makes it the working directory; the destructor returns to
/// the earlier one and removes the folder. Commands are still found in relative entries of PATH.
/// Not for several threads.
class ScratchFolder
{
public:
    /// Throws std::exception.
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

private:
    AbsoluteSearchPath m_search_path;
    fwbase::Descriptor m_earlier;
    std::string m_path;
};

} // namespace host
