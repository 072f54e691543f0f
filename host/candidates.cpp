#include "host/candidates.h"

#include "framework/owned.h"
#include "framework/xml.h"
#include "fwbase/xml_document.h"
#include "host/answer.h"
#include "host/configuration_path.h"
#include "host/service_names.h"
#include "host/signals.h"
#include "transaction/configuration.h"
#include "transaction/record.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <set>
#include <string_view>

namespace host
{

namespace
{

using transaction::Outcome;

constexpr const char* list_path = "//kavra_conf/service_optimize";

/// Throws unless the module would switch a service of this name: the name becomes a word of a shell
/// command and perhaps a file name, and the module has to find it in a line of chkconfig.
void require_switchable(const std::string& name)
{
    constexpr std::size_t longest = 200; // in bytes
    const auto is_interpreted = [](char character) {
        constexpr std::string_view interpreted = "'\"\\$&;|<>(){}[]*?~#!^=`/";
        const auto byte = static_cast<unsigned char>(character);
        return byte <= ' ' || byte == 0x7F || interpreted.find(character) != std::string_view::npos;
    };
    // An option, a folder, or a name in which the module would find the column of run level 0.
    const bool is_reserved =
        name.front() == '-' || name == "." || name == ".." || name.find("0:") != std::string::npos;
    const char* const fault = name.size() > longest ? "is longer than 200 bytes"
                              : is_reserved         ? "is not a valid name of a service"
                              : std::any_of(name.begin(), name.end(), is_interpreted)
                                  ? "has a character that commands cannot take"
                                  : nullptr;
    if (fault != nullptr) {
        throw Refused("'" + name + "' " + fault);
    }
}

owned<IXmlDocument> load()
{
    owned<IXmlDocument> document(newXmlDocument());
    document->load(configuration_path);
    return document;
}

/// The configuration, locked to be edited.
class Edit
{
public:
    Edit(const transaction::Say& say, const transaction::Waiting& waiting)
        : m_lock(configuration_path, say, transaction::Lock::Create::yes, waiting),
          m_record(m_lock.place()), m_lines(m_record.read()), m_document(load()),
          m_entries(configuration_path)
    {
        const owned<IXmlNode> root(m_document->root());
        m_list.reset(root->selectSingleNode(list_path));
        if (!m_list) {
            throw CLiteXmlException(configuration_path, 0,
                                    "the element service_optimize is missing");
        }
    }

    /// The record. Changes to it are written by save().
    transaction::Lines& lines() { return m_lines; }
    /// The entries of a name.
    std::vector<const transaction::Entry*> find(const std::string& name) const
    {
        std::vector<const transaction::Entry*> found;
        for (const std::size_t position : m_entries.find(name)) {
            found.push_back(&m_entries.entries()[position]);
        }
        return found;
    }
    /// The largest id plus one. Ids are signed in the file.
    int next_id() const
    {
        int largest = 0;
        for (const transaction::Entry& entry : m_entries.entries()) {
            largest = std::max(largest, static_cast<int>(entry.id));
        }
        if (largest == std::numeric_limits<int>::max()) {
            throw Refused("no id is free: the configuration has the largest one, " +
                          std::to_string(largest));
        }
        return largest + 1;
    }
    void add(int id, const std::string& name, const std::string& description)
    {
        fwbase::add_element(*m_list, "info",
                            {{"id", std::to_string(id)},
                             {"name", name},
                             {"op", std::to_string(transaction::unavailable)},
                             {"level", "off"},
                             {"xinetd", "0"},
                             {"desc", description}});
    }
    void remove(const std::set<std::string>& names)
    {
        const owned<IXmlNode> root(m_document->root());
        const owned<IXmlNodeList> infos(root->selectNodes("//kavra_conf/service_optimize/info"));
        for (int position = 0; infos && position < infos->count(); ++position) {
            const owned<IXmlNode> info(infos->item(position));
            if (names.count(info->attribute("name")->value()) != 0) {
                fwbase::remove_element(*info);
            }
        }
    }
    /// Saves the record, then the configuration. If only the first is done, the next call finds the
    /// mark of a removed service in the configuration, and records it again.
    void save()
    {
        m_record.write(m_lines);
        m_document->save(configuration_path);
    }

private:
    transaction::Lock m_lock;
    transaction::Record m_record;
    transaction::Lines m_lines;
    /// Loaded before m_entries: if the file changes after that, the save fails.
    owned<IXmlDocument> m_document;
    transaction::Configuration m_entries;
    owned<IXmlNode> m_list;
};

/// The run levels of a service that is switched off; none if it is not. They are those in the
/// record or, because the record may be lost, those in the configuration.
std::optional<std::string> levels_of(const std::string& name, Edit& edit)
{
    const auto line = edit.lines().find(name);
    if (line != edit.lines().end()) {
        return line->second.state == transaction::State::ignored
                   ? std::nullopt
                   : std::optional(line->second.levels);
    }
    for (const transaction::Entry* const entry : edit.find(name)) {
        if (entry->op == transaction::optimized && transaction::is_level(entry->level)) {
            return entry->level;
        }
    }
    return std::nullopt;
}

std::vector<Outcome> add(const Call& call, Edit& edit)
{
    const std::string& name = call.services.front();
    const std::vector<const transaction::Entry*> known = edit.find(name);
    if (!known.empty()) {
        return {{known.front()->id, name, Outcome::unchanged, "", "already configured"}};
    }
    const int id = edit.next_id();
    const auto line = edit.lines().find(name);
    if (line != edit.lines().end() && line->second.state == transaction::State::ignored) {
        edit.lines().erase(line); // left over by a removal that was interrupted
    }
    edit.add(id, name, call.description);
    edit.save();
    return {{static_cast<unsigned int>(id), name, Outcome::done, "", ""}};
}

/// Decides whether a service can be removed: Outcome::done if it can.
Outcome judge_removal(const std::string& name, bool is_configured, Edit& edit)
{
    if (const auto levels = levels_of(name, edit)) {
        return {0, name, Outcome::not_handled, "optimized",
                is_configured ? "it is switched off, and was on " + transaction::on_in(*levels) +
                                    ": restore_service " + name + " first"
                              : how_to_restore(name, *levels)};
    }
    if (!is_configured) {
        return {0, name, Outcome::unchanged, "", "not configured"};
    }
    return {0, name, Outcome::done, "", ""};
}

std::vector<Outcome> remove(const Call& call, Edit& edit)
{
    std::vector<Outcome> outcomes;
    std::set<std::string> removed;
    for (const std::string& name : call.services) {
        const std::vector<const transaction::Entry*> entries = edit.find(name);
        Outcome outcome = judge_removal(name, !entries.empty(), edit);
        if (removed.count(name) != 0) {
            continue;
        }
        if (outcome.kind != Outcome::not_handled) {
            edit.lines().erase(name);
            removed.insert(name);
        }
        outcome.has_id = !entries.empty();
        if (entries.empty()) {
            outcomes.push_back(outcome);
        }
        for (const transaction::Entry* const entry : entries) {
            outcome.id = entry->id;
            outcomes.push_back(outcome);
        }
    }
    edit.remove(removed);
    edit.save();
    return outcomes;
}

} // namespace

std::vector<Outcome> edit_candidates(const Call& call, const transaction::Say& say,
                                     const transaction::Waiting& waiting)
{
    const bool adds = call.operation == "add_service";
    if (adds) {
        require_switchable(call.services.front());
    }
    Edit edit(say, waiting);
    const IgnoredSignals ignored_signals;
    return adds ? add(call, edit) : remove(call, edit);
}

bool has_candidate_list()
{
    const owned<IXmlDocument> document = load();
    const owned<IXmlNode> root(document->root());
    return owned<IXmlNode>(root->selectSingleNode(list_path)) != nullptr;
}

} // namespace host
