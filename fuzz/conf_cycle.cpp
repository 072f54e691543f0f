// Loads a configuration file, changes it and saves it.
#include "conf/conf.h"
#include "fuzz/target.h"

#include <climits>

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const FuzzWorkspace workspace;
    FuzzWorkspace::write(FuzzWorkspace::conf_path, std::string(data, data + size));
    std::vector<ServiceOptimize> entries;
    const bool loads = CConf::GetServiceFromConfigByOp(entries, OPT_NONE);
    assert(CConf::ModifyOpByIds({}, OPT_NONE) == loads);
    const std::string saved = FuzzWorkspace::read(FuzzWorkspace::conf_path);
    assert(CConf::ModifyOpByIds({}, OPT_NONE) == loads);
    assert(FuzzWorkspace::read(FuzzWorkspace::conf_path) == saved);

    unsigned int score = 0;
    const auto any = static_cast<unsigned int>(size * 0x9E3779B1U); // spread over 32 bits
    const bool set = CConf::SetOptimizeScore(any);
    assert(CConf::GetOptimizeScore(score) == set);
    assert(!set || score == std::min<unsigned int>(any, INT_MAX));
    return 0;
}
