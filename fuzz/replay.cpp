// Runs a fuzz target on files given by absolute paths, in place of libFuzzer.
#include "fuzz/target.h"

int main(int count, char** files)
{
    for (int i = 1; i < count; ++i) {
        const std::string bytes = Place::read(files[i]);
        LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }
    return count == 1; // nothing to run is a failure
}
