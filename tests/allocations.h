// Counts the objects made with new, so that a test can prove that nothing is left.
#pragma once

namespace allocations
{

/// Objects that are alive.
long live();

/// Makes the n-th non-throwing new from now on return null; 0: none does.
void fail_nothrow(int n);

} // namespace allocations
