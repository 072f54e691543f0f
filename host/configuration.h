// The services of the module's configuration.
#pragma once

#include "framework/xml.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

/// The module's configuration, relative to the working directory.
constexpr const char* configuration_path = "./config/system_operation/conf.xml";

/// The configuration cannot be used, or not as a call needs it.
struct ConfigurationError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// States of a service.
enum State : int { none, optimized, ignored, unavailable };
constexpr std::array<const char*, 4> state_names = {"none", "optimized", "ignored", "unavailable"};

/// A configured service; texts are UTF-8.
struct Entry {
    unsigned int id;
    std::string name;
    int op; ///< a State, but the file may hold any number
    std::string level;
};

/// Throws CLiteXmlException unless the file can be read and is a configuration by its root element.
void require_configuration(const std::string& path);

/// Calls `visit` with the element of each service in document order. Throws std::exception.
void for_each_service(IXmlDocument& document, const std::function<void(IXmlNode&)>& visit);

/// The services of a document in its order. Throws std::exception.
std::vector<Entry> read_services(IXmlDocument& document);

/// The services of the configuration. Throws std::exception.
std::vector<Entry> read_configuration();

} // namespace host
