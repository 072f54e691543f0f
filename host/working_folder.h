// The folder with the configuration, in which the module works.
#pragma once

#include <optional>
#include <string>

namespace host
{

/// Makes the given folder the working directory. Without one, keeps the working directory if the
/// configuration is there, otherwise changes to the folder of the installation if it is there. Root
/// must give a folder in which another user can change or create the configuration.
///
/// Throws std::runtime_error if the folder cannot be entered, and if root has to give it.
void enter_working_folder(const std::optional<std::string>& directory);

/// Says that there is no configuration, and in which places; empty if there is one.
std::string missing_configuration();

/// A reason for people: the configuration's path is made absolute, and "; run as root" is added if
/// rights were missing. Does not change a reason that it has returned itself.
std::string for_people(std::string reason);

} // namespace host
