// What the fuzz targets share.
#pragma once

#include "tests/workspace.h"

#undef NDEBUG // the targets check with assert in every build
#include <cassert>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

/// The workspace of a target. Set TMPDIR to a folder in memory for more speed.
struct FuzzWorkspace : Workspace {
    using Workspace::conf_path, Workspace::read, Workspace::write, Workspace::write_conf;
    void TestBody() override {}
};
