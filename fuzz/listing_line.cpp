// Reads a line of the service listing.
#include "fuzz/target.h"
#include "service/redhat_service.h"

#include <algorithm>
#include <functional>

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    CServiceMap services;
    AddListedService(std::string(data, data + size).c_str(), services);
    assert(services.size() <= 1);
    for (const auto& [name, state] : services) {
        assert(name.find_first_of(" \t\n\v\f\r") == std::string::npos);
        const std::string& level = state.level;
        if (!state.xinetd && level != "off") { // ascending digits from 0 to 5
            assert(level.find_first_not_of("012345") == std::string::npos);
            assert(std::is_sorted(level.begin(), level.end(), std::less_equal<>()));
        }
    }
    return 0;
}
