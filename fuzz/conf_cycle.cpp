// A configuration file through the store: load, change, save.
#include "conf/conf.h"
#include "fuzz/target.h"

#include <climits>

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Place place;
    Place::write(Place::conf_path, std::string(data, data + size));
    std::vector<ServiceOptimize> entries;
    const bool loads = CConf::GetServiceFromConfigByOp(entries, OPT_NONE);
    assert(CConf::ModifyOpByIds({}, OPT_NONE) == loads);
    const std::string saved = Place::read(Place::conf_path);
    assert(CConf::ModifyOpByIds({}, OPT_NONE) == loads && Place::read(Place::conf_path) == saved);

    unsigned int score = 0;
    const auto any = static_cast<unsigned int>(size * 0x9E3779B1U); // of all 32-bit numbers
    assert(CConf::SetOptimizeScore(any) == CConf::GetOptimizeScore(score));
    assert(!CConf::GetOptimizeScore(score) || score == std::min<unsigned int>(any, INT_MAX));
    return 0;
}
