// The framework that the module's objects meet in the tests: it forwards to the reference host's
// objects, makes one call fail on request, and counts the objects made with new.
#pragma once

#include "tests/workspace.h"

#include <string_view>

namespace fake
{

/// Counts calls, and makes one of them fail.
struct Faults {
    int left = 0;            ///< the how manieth call from now on is to fail; 0: none
    std::string_view failed; ///< name of the call that failed; empty when none did
    ec::EC code = 0;         ///< what the module is to make of it

    /// Counts one call; true when it is to fail.
    bool strike(std::string_view call, ec::EC becomes = 0)
    {
        if (left == 0 || --left != 0) {
            return false;
        }
        failed = call;
        code = becomes;
        return true;
    }
};

extern Faults rpc_faults;    // null, zero, or a failure code
extern Faults xml_faults;    // CLiteXmlException
extern Faults memory_faults; // null from the non-throwing new
extern Faults exhaustion;    // std::bad_alloc from the other

extern std::string run_log; // "TYPE TEXT [WHERE]\n" per entry
extern int rpc_references;  // obtained and not given back
extern long living_objects; // made with new
extern std::size_t largest_object;

/// Runs `attempt` with its first call failing, then with its second, and so on until none fails.
/// Each time nothing that it made may be left.
template <class Attempt>
void sweep(Faults& faults, Attempt attempt)
{
    faults.failed = "none yet";
    for (int n = 1; !faults.failed.empty(); ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        ASSERT_LT(n, 500);
        const long before = living_objects;
        faults = {n, {}, 0};
        attempt();
        EXPECT_EQ(living_objects, before) << faults.failed;
    }
    faults = {};
}

} // namespace fake
