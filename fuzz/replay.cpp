// Runs a fuzz target once on each of the given files, which have absolute paths, without libFuzzer.
#include "fuzz/target.h"

int main(int count, char** files)
{
    for (int i = 1; i < count; ++i) {
        const std::string bytes = FuzzWorkspace::read(files[i]);
        LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }
    return count == 1 ? 1 : 0; // fail without files
}
