// Counts the objects made with new.
#pragma once

namespace allocations
{

/// Objects made since the program began. For one thread only.
long made();

} // namespace allocations
