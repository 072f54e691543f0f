// A module that cannot be initialised. Preloaded, it also takes the place of flock: then no file
// system can lock.
#include "rpc/entry.h"

#include <cerrno>

namespace
{

class UnwillingModule final : public rpc::IIfaceRealize
{
public:
    ec::EC init(void*) override { return 0x0402000A; }
    void release() override {}
    const IAtt* iatt() const override { return nullptr; }
    ec::EC fatts(ex_std::vector<const FAtt*>&) const override { return 0; }
    ec::EC call_func(const fwbase::IDataBlock*, fwbase::IDataBlock*&, rpc::ICommand*) override
    {
        return 0;
    }
};

} // namespace

rpc::IIfaceRealize* rpc_ireal_Optimize_Option()
{
    static UnwillingModule module;
    return &module;
}

extern "C" int flock(int, int)
{
    errno = ENOLCK;
    return -1;
}
