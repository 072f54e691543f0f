// A line of the service listing.
#include "fuzz/target.h"
#include "service/redhat_service.h"

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    CServiceMap services;
    AddListedService(std::string(data, data + size).c_str(), services);
    assert(services.size() <= 1);
    for (const auto& [name, state] : services) {
        assert(name.find_first_of(" \t\n\v\f\r") == std::string::npos);
        std::string levels; // those of 0 to 5 that the level names, each once and ascending
        for (char digit = '0'; digit <= '5'; ++digit) {
            levels.append(state.level.find(digit) == std::string::npos ? 0 : 1, digit);
        }
        assert(state.xinetd || state.level == (levels.empty() ? "off" : levels));
    }
    return 0;
}
