// The services in the module's configuration, read and edited through the host's XML layer.
#pragma once

#include "framework/owned.h"
#include "framework/xml.h"
#include "transaction/entry.h"

#include <map>
#include <string>
#include <vector>

namespace transaction
{

/// One reading of the file, and changes to it. Throws what the XML layer throws: CLiteXmlException
/// or std::bad_alloc. Not for several threads at once.
class Configuration
{
public:
    /// Reads the file.
    explicit Configuration(std::string path);
    /// Reads the file again and forgets changes that were not saved.
    void read();

    /// In the order of the file.
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The positions in entries() of those with that name; empty if there are none.
    const std::vector<std::size_t>& find(const std::string& name) const;

    /// Changes an entry, here and in the document.
    void set_op(std::size_t position, int op);
    void set_level(std::size_t position, const std::string& level);
    void set_xinetd(std::size_t position, bool xinetd);

    /// Saves the file if something was changed.
    void save();

private:
    void set(std::size_t position, const char* attribute, const std::string& value);

    std::string m_path;
    owned<IXmlDocument> m_document; // declared before m_nodes, so that these are released first
    owned<IXmlNodeList> m_nodes;
    std::vector<Entry> m_entries;
    std::map<std::string, std::vector<std::size_t>> m_by_name;
    bool m_is_changed = false;
};

} // namespace transaction
