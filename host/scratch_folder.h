// A scratch folder to work in.
#pragma once

#include "framework/descriptor.h"

#include <string>

namespace host
{

/// Creates a private temporary folder and makes it the working directory; the destructor returns to
/// the earlier one and removes the folder. Commands are found only in absolute entries of PATH. Not
/// for several threads.
class ScratchFolder
{
public:
    /// Throws std::exception.
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

private:
    fwbase::Descriptor m_earlier;
    std::string m_path;
};

} // namespace host
