// Loads a plug-in module from its shared library.
#pragma once

#include "framework/rpc.h"

#include <memory>
#include <string>

namespace host
{

/// Path of the module in the folder of libfwbase.so, where a build and an installation put it.
std::string installed_module();

/// Loads and initialises a module; the destructor releases and unloads it.
class Module
{
public:
    /// Throws std::runtime_error, whose text names the file and the reason, if the library cannot
    /// be loaded, does not export the entry function, or its init fails.
    explicit Module(const std::string& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /// Borrowed; valid for the lifetime of this object.
    rpc::IIfaceRealize& interface() const { return *m_interface; }

private:
    struct Closer {
        void operator()(void* library) const noexcept;
    };
    std::unique_ptr<void, Closer> m_library;
    rpc::IIfaceRealize* m_interface = nullptr;
};

} // namespace host
