#include "transaction/configuration.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace transaction
{

namespace
{

/// Reads a number as the module does.
int to_number(const std::string& text)
{
    using Limits = std::numeric_limits<int>;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

} // namespace

Configuration::Configuration(std::string path) : m_path(std::move(path))
{
    read();
}

void Configuration::read()
{
    m_nodes.reset();
    m_entries.clear();
    m_by_name.clear();
    m_is_changed = false;
    m_document.reset(newXmlDocument());
    m_document->load(m_path.c_str());
    const owned<IXmlNode> root(m_document->root());
    m_nodes.reset(root->selectNodes("//kavra_conf/service_optimize/info"));
    for (int position = 0; m_nodes && position < m_nodes->count(); ++position) {
        const owned<IXmlNode> info(m_nodes->item(position));
        const auto text = [&info](const char* name) { return info->attribute(name)->value(); };
        m_entries.push_back({static_cast<unsigned int>(to_number(text("id"))), text("name"),
                             text("desc"), to_number(text("op")), text("level"),
                             to_number(text("xinetd")) != 0});
        m_by_name[m_entries.back().name].push_back(m_entries.size() - 1);
    }
}

const std::vector<std::size_t>& Configuration::find(const std::string& name) const
{
    static const std::vector<std::size_t> nowhere;
    const auto found = m_by_name.find(name);
    return found == m_by_name.end() ? nowhere : found->second;
}

void Configuration::set_op(std::size_t position, int op)
{
    if (m_entries[position].op != op) {
        m_entries[position].op = op;
        set(position, "op", std::to_string(op));
    }
}

void Configuration::set_level(std::size_t position, const std::string& level)
{
    if (m_entries[position].level != level) {
        m_entries[position].level = level;
        set(position, "level", level);
    }
}

void Configuration::set_xinetd(std::size_t position, bool xinetd)
{
    if (m_entries[position].xinetd != xinetd) {
        m_entries[position].xinetd = xinetd;
        set(position, "xinetd", xinetd ? "1" : "0");
    }
}

void Configuration::set(std::size_t position, const char* attribute, const std::string& value)
{
    const owned<IXmlNode> info(m_nodes->item(static_cast<int>(position)));
    info->attribute(attribute)->setValue(value.c_str());
    m_is_changed = true;
}

void Configuration::save()
{
    if (m_is_changed) {
        m_document->save(m_path.c_str());
        m_is_changed = false;
    }
}

} // namespace transaction
