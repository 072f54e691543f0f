// A plug-in module, loaded from its shared library and ready for calls.
#pragma once

#include "framework/rpc.h"

#include <memory>
#include <string>

namespace host
{

/// Path of the module that lies in the folder of libfwbase.so, as in a build or an installation.
std::string installed_module();

/// Loads and initialises a module; releases and unloads it.
class Module
{
public:
    /// Throws std::runtime_error, whose text names the file and the reason, when the library cannot
    /// be loaded, exports no interface, or its init fails.
    explicit Module(const std::string& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /// Borrowed; valid as long as the module.
    rpc::IIfaceRealize& interface() const { return *m_interface; }

private:
    struct Closer {
        void operator()(void* library) const noexcept;
    };
    std::unique_ptr<void, Closer> m_library;
    rpc::IIfaceRealize* m_interface = nullptr;
};

} // namespace host
