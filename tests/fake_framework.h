// The framework under the module tests. It forwards to the reference framework, fails a call on
// request, and counts what was obtained.
#pragma once

#include "tests/workspace.h"

#include <string_view>
#include <utility>

namespace fake
{

/// Counts calls and makes one of them fail.
struct Faults {
    int left = 0;            ///< Fail the Nth call from now on; 0 disables.
    std::string_view failed; ///< name of the call that failed; empty if none did
    ec::EC code = 0;         ///< what the module is expected to return for it

    /// Counts one call; true if it is to fail.
    bool strike(std::string_view call, ec::EC expected = 0)
    {
        if (left == 0 || --left != 0) {
            return false;
        }
        failed = call;
        code = expected;
        return true;
    }
};

extern Faults rpc_faults;    // null, zero or a failure code; std::runtime_error from release
extern Faults xml_faults;    // CLiteXmlException
extern Faults memory_faults; // null from the non-throwing new
extern Faults exhaustion;    // std::bad_alloc from the throwing new

constexpr ec::EC block_made = 0x84020007; // the memory manager's code for a block

extern std::uint32_t reply_size; // if not 0, the size that replies claim
extern std::string run_log;      // "TYPE TEXT [WHERE]\n" per entry
extern int rpc_references;       // obtained and not given back
extern int unsized_blocks;       // a message was written into them, but their size was not set
extern long living_objects;      // made with new
extern std::size_t largest_object;

/// Runs `attempt` with its first call failing, then its second, and so on until no call fails.
/// Checks that each run frees everything it made.
template <class Attempt>
void sweep(Faults& faults, Attempt attempt)
{
    faults.failed = "none yet";
    for (int n = 1; !faults.failed.empty(); ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        ASSERT_LT(n, 2000);
        const long before = living_objects;
        faults = {n, {}, 0};
        attempt();
        EXPECT_EQ(living_objects, before) << faults.failed;
    }
    faults = {};
}

/// Lets every `new` succeed while it lives: for memory that the test itself needs in an attempt.
struct Unlimited {
    Unlimited() : m_armed(std::exchange(exhaustion, {})) {}
    Unlimited(const Unlimited&) = delete;
    ~Unlimited() { exhaustion = m_armed; }

private:
    Faults m_armed;
};

/// Sweeps over the throwing new. An exception may pass through to the host.
template <class Attempt>
void sweep_exhaustion(Attempt attempt)
{
    sweep(exhaustion, [&attempt] {
        try {
            attempt();
        } catch (const std::bad_alloc&) {
        }
        exhaustion.left = 0;
    });
}

} // namespace fake
