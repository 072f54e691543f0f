#include "host/configuration.h"

#include "framework/owned.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace host
{

namespace
{

/// Reads a number as the module does.
int to_stored_number(const std::string& text)
{
    using Limits = std::numeric_limits<int>;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

} // namespace

void require_configuration(const std::string& path)
{
    const owned<IXmlDocument> document(newXmlDocument());
    document->load(path.c_str());
    const owned<IXmlNode> root(document->root());
    if (!owned<IXmlNode>(root->selectSingleNode("/kavra_conf"))) {
        throw CLiteXmlException(path, 0, "not a configuration: the root element is not kavra_conf");
    }
}

void for_each_service(IXmlDocument& document, const std::function<void(IXmlNode&)>& visit)
{
    const owned<IXmlNode> root(document.root());
    const owned<IXmlNodeList> list(root->selectNodes("//kavra_conf/service_optimize/info"));
    for (int position = 0; list && position < list->count(); ++position) {
        const owned<IXmlNode> info(list->item(position));
        visit(*info);
    }
}

std::vector<Entry> read_services(IXmlDocument& document)
{
    std::vector<Entry> entries;
    for_each_service(document, [&entries](IXmlNode& info) {
        entries.push_back(
            {static_cast<unsigned int>(to_stored_number(info.attribute("id")->value())),
             info.attribute("name")->value(), to_stored_number(info.attribute("op")->value()),
             info.attribute("level")->value()});
    });
    return entries;
}

std::vector<Entry> read_configuration()
{
    const owned<IXmlDocument> document(newXmlDocument());
    document->load(configuration_path);
    return read_services(*document);
}

} // namespace host
