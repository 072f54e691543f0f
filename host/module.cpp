#include "host/module.h"

#include "host/text.h"

#include <dlfcn.h>
#include <stdexcept>

namespace host
{

namespace
{

constexpr const char* entry_name = "rpc_ireal_Optimize_Option";

} // namespace

std::string installed_module()
{
    Dl_info library = {};
    ::dladdr(fwbase::IFWBase::instance(), &library);
    const std::string path = library.dli_fname == nullptr ? "" : library.dli_fname;
    return path.substr(0, path.rfind('/') + 1) + "rpc_ireal_Optimize_Option.so";
}

void Module::Closer::operator()(void* library) const noexcept
{
    dlclose(library);
}

Module::Module(const std::string& path)
{
    // dlopen searches the system's library folders for a name without a slash.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    m_library.reset(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!m_library) {
        throw std::runtime_error(dlerror());
    }
    using Entry = rpc::IIfaceRealize*();
    const auto entry = reinterpret_cast<Entry*>(dlsym(m_library.get(), entry_name));
    if (entry == nullptr) {
        throw std::runtime_error(file + ": not a module: it does not export " + entry_name);
    }
    rpc::IIfaceRealize* const interface = entry();
    const ec::EC code = interface->init(nullptr);
    if (!ec::succeeded(code)) {
        interface->release();
        throw std::runtime_error(file + ": init failed with code " + hexadecimal(code));
    }
    m_interface = interface;
}

Module::~Module()
{
    if (m_interface != nullptr) {
        m_interface->release();
    }
}

} // namespace host
