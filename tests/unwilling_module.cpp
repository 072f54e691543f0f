// A module that cannot be initialised, unless the variable WILLING is set, and that has an
// operation of its own, which gives no reply. Preloaded, it also takes the place of flock: then no
// file system can lock.
#include "rpc/entry.h"

#include <cerrno>
#include <cstdlib>

namespace
{

class UnwillingModule final : public rpc::IIfaceRealize
{
public:
    ec::EC init(void*) override
    {
        return std::getenv("WILLING") == nullptr ? 0x0402000A : 0x80000000;
    }
    void release() override {}
    const IAtt* iatt() const override { return nullptr; }
    ec::EC fatts(ex_std::vector<const FAtt*>& list) const override
    {
        static const FAtt own = {"make_tea", ""};
        list.push_back(&own);
        return 0x80000000;
    }
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
