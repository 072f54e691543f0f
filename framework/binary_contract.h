// What a host and its modules must have in common to exchange objects: the version of these
// declarations, and how both are compiled.
#pragma once

#include <cstddef> // the macros of the standard library

#if !defined(__GLIBCXX__)
#error "a module exchanges objects of libstdc++ with its host: do not compile with another library"
#elif !_GLIBCXX_USE_CXX11_ABI
#error "a module exchanges strings of the new ABI with its host: use _GLIBCXX_USE_CXX11_ABI=1"
#elif defined(_GLIBCXX_DEBUG)
#error "_GLIBCXX_DEBUG changes the layout of the vectors that a module exchanges with its host"
#elif !defined(__cpp_exceptions)
#error "exceptions pass between a module and its host: do not compile with -fno-exceptions"
#endif

namespace fwbase
{

/// Version of the declarations in this folder; raised when an operation is appended to an interface
/// of the host. A host serves modules that were compiled with its own version or an older one.
/// Nothing is ever appended to what a module implements, so any host can call any module.
constexpr unsigned declarations_version = 1;

} // namespace fwbase
