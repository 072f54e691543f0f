// The path at which the module looks for its configuration.
#pragma once

namespace host
{

/// Relative to the working directory.
constexpr const char* configuration_path = "./config/system_operation/conf.xml";

} // namespace host
