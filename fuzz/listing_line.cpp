// Reads a line of the service listing.
#include "fuzz/target.h"
#include "service/redhat_service.h"

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    CServiceMap services;
    AddListedService(std::string(data, data + size).c_str(), services);
    assert(services.size() <= 1);
    for (const auto& [name, state] : services) {
        assert(name.find_first_of(" \t\n\v\f\r") == std::string::npos);
        assert(state.xinetd || state.level == "off" ||
               state.level.find_first_not_of("012345") == std::string::npos);
    }
    return 0;
}
