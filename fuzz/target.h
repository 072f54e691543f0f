// What the fuzz targets share.
#pragma once

#include "tests/workspace.h"

#undef NDEBUG // assertions are what a target is for
#include <cassert>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

/// A workspace outside of a test. Faster when TMPDIR is in memory.
struct Place : Workspace {
    using Workspace::conf_path, Workspace::read, Workspace::write, Workspace::write_conf;
    void TestBody() override {}
};
