// Who holds a lock on a file.
#pragma once

#include <string>

namespace transaction
{

/// For people: "; process 4711 (optimize_host) holds the lock". Empty if nobody holds a lock on the
/// open file, or if it cannot be found out.
std::string holder_of(int file);

} // namespace transaction
