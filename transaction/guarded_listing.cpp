#include "transaction/guarded_listing.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

namespace transaction
{

namespace
{

/// The module does not deliver replies of 65520 bytes. In GBK, a text is never longer than in
/// UTF-8.
bool is_deliverable(const Entry& entry)
{
    return entry.name.size() + entry.desc.size() < 65000;
}

/// Throws unless the file agrees with the replies of the listing: somebody may have replaced it
/// after the module wrote it.
void require_agreement(const std::string& path, const std::vector<Entry>& entries,
                       const std::vector<Reply>& replies)
{
    auto reply = replies.begin();
    const bool agrees = std::all_of(entries.begin(), entries.end(), [&](const Entry& entry) {
        if (reply != replies.end() && reply->id == entry.id && reply->name == entry.name &&
            reply->op == entry.op) {
            ++reply;
            return true;
        }
        return entry.op == unavailable || !is_deliverable(entry);
    });
    if (!agrees || reply != replies.end()) {
        throw std::runtime_error(path + ": replaced by another program during the listing");
    }
}

} // namespace

GuardedListing::GuardedListing(const std::string& configuration, Call call, Say say,
                               const Waiting& waiting)
    : m_lock(configuration, say, Lock::Create::yes, waiting), m_call(std::move(call)),
      m_say(std::move(say)), m_record(m_lock.place()), m_configuration(configuration),
      m_lines(m_record.read())
{
    take_over();
}

View GuardedListing::view_of(const std::string& name) const
{
    const auto found = m_views.find(name);
    return found == m_views.end() ? View{false, unavailable, ""} : found->second;
}

const Line* GuardedListing::line_of(const std::string& name) const
{
    const auto found = m_lines.find(name);
    return found == m_lines.end() ? nullptr : &found->second;
}

void GuardedListing::set_line(const std::string& name, const Line* line)
{
    if (line == nullptr) {
        m_lines.erase(name);
    } else {
        m_lines[name] = *line;
    }
}

void GuardedListing::set_entries(const std::string& name, int op, const std::string& level)
{
    for (const std::size_t position : m_configuration.find(name)) {
        m_configuration.set_op(position, op);
        m_configuration.set_level(position, level);
        m_configuration.set_xinetd(position, level == "on");
    }
}

void GuardedListing::begin(const Names& switched, const Names& named)
{
    list(switched, true);
    settle(named, true);
    save();
    tell_unlisted(named);
}

void GuardedListing::verify(const Names& switched)
{
    m_configuration.read();
    list(switched, false);
    settle(switched, false);
    m_configuration.save();
}

void GuardedListing::save()
{
    m_configuration.save();
    m_record.write(m_lines);
}

/// Records what only the configuration knows: the record may be lost, or another host has switched.
/// Of several entries of one name, the first that was switched off decides, then an ignored one.
void GuardedListing::take_over()
{
    for (const int op : {optimized, ignored}) {
        for (const Entry& entry : m_configuration.entries()) {
            if (entry.op != op || line_of(entry.name) != nullptr || !is_recordable(entry.name)) {
                continue;
            }
            if (op == ignored) {
                m_lines[entry.name] = {State::ignored, "-", now()};
            } else if (is_level(entry.level)) {
                m_lines[entry.name] = {State::off, entry.level, now()};
                m_taken_over.insert(entry.name);
            }
        }
    }
    m_record.write(m_lines);
}

/// Makes the configuration say what the record says, has the module list the machine, and reads
/// what it wrote. Entries prepared like this are in state 0 afterwards if the service is on, 1 if
/// it was found off, and 3 if it was not listed. A requested service without a line is in state 3
/// afterwards with the level "off" if it was found off, with an empty one if it was not listed.
void GuardedListing::list(const Names& switched, bool is_first)
{
    for (const auto& [name, line] : m_lines) {
        if (line.state != State::ignored) {
            set_entries(name, optimized, line.levels);
        }
    }
    for (const std::string& name : switched) {
        if (line_of(name) != nullptr || !is_recordable(name)) {
            continue;
        }
        for (const std::size_t position : m_configuration.find(name)) {
            if (is_first) {
                m_configuration.set_op(position, unavailable);
            }
            if (m_configuration.entries()[position].op == unavailable) {
                m_configuration.set_level(position, "");
            }
        }
    }
    m_configuration.save();
    const std::vector<Reply> replies = m_call("ls_service", false, {});
    m_configuration.read();
    require_agreement(m_lock.place().path, m_configuration.entries(), replies);
    m_views.clear();
    for (const Entry& entry : m_configuration.entries()) {
        m_views.emplace(entry.name, View{true, entry.op, entry.level});
    }
}

/// Brings the record and the configuration in line with what the listing showed. Says less about
/// the services in `named`: the outcomes of the call tell people about them.
void GuardedListing::settle(const Names& named, bool is_first)
{
    const std::set<std::string> requested(named.begin(), named.end());
    for (auto next = m_lines.begin(); next != m_lines.end();) {
        const auto current = next++;
        const std::string& name = current->first;
        Line& line = current->second;
        const View seen = view_of(name);
        if (line.state == State::ignored) {
            set_ops(name, {none, optimized}, ignored);
        } else if (seen.is_on() && includes(seen.level, line.levels)) {
            const bool is_told = is_first || requested.count(name) == 0;
            if (is_told && line.state == State::off && seen.level != line.levels) {
                m_say(name + " was switched on by somebody else: it is on " + on_in(seen.level) +
                      "; before it was switched off it was on " + on_in(line.levels));
            }
            m_lines.erase(current);
        } else if (seen.is_on()) {
            const bool is_new = is_first || line.state != State::partly;
            line.state = State::partly;
            if (is_new && requested.count(name) == 0) {
                m_say(name + " is on in run levels " + seen.level +
                      "; before it was switched off it was on " + on_in(line.levels) +
                      ": restore_service brings these back, optimize_service switches it off");
            }
        } else if (seen.is_off()) {
            settle_off(name, line, is_first);
        } else if (seen.is_unlisted()) {
            set_ops(name, {unavailable},
                    line.state == State::switching_on ? unavailable : optimized);
        }
    }
}

/// Settles the line of a service that was found off.
void GuardedListing::settle_off(const std::string& name, Line& line, bool is_first) const
{
    if (is_first && line.state == State::switching_off) {
        m_say("an interrupted call had switched " + name + " off; it can be restored");
    }
    if (is_first && m_taken_over.count(name) != 0) {
        m_say(name + " is off, and the configuration marks it as optimized (on " +
              on_in(line.levels) + "): added to the record, which lacked it");
    }
    line.state = State::off;
}

/// Gives the state `to` to the entries of a name whose state is one of `from`.
void GuardedListing::set_ops(const std::string& name, std::initializer_list<int> from, int to)
{
    for (const std::size_t position : m_configuration.find(name)) {
        const int op = m_configuration.entries()[position].op;
        if (std::find(from.begin(), from.end(), op) != from.end()) {
            m_configuration.set_op(position, to);
        }
    }
}

void GuardedListing::tell_unlisted(const Names& named) const
{
    const std::set<std::string> wanted(named.begin(), named.end());
    std::string kept;
    for (const auto& [name, line] : m_lines) {
        if ((wanted.empty() || wanted.count(name) != 0) && line.state != State::ignored &&
            line.state != State::switching_on && view_of(name).is_unlisted()) {
            kept += " " + name;
        }
    }
    if (!kept.empty()) {
        m_say("kept as optimized although chkconfig does not list them:" + kept);
    }
}

} // namespace transaction
