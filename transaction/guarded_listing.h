// A listing of the machine that forgets nothing.
#pragma once

#include "transaction/calls.h"
#include "transaction/configuration.h"
#include "transaction/lock.h"
#include "transaction/record.h"

#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace transaction
{

/// What a listing showed of a service, by the first of its entries.
struct View {
    bool is_configured;
    int op;
    std::string level;

    bool is_on() const { return is_configured && op == none; }
    bool is_off() const { return is_configured && op == optimized; } ///< meaningless without a line
    bool is_unlisted() const { return is_configured && op == unavailable; }
};

/// The lock, the record and the configuration of one call, and what its latest listing showed.
/// Throws as Transaction does.
class GuardedListing
{
public:
    using Names = std::vector<std::string>;

    /// Waits for the lock, and reads the configuration and the record. Takes over what only the
    /// configuration knows.
    GuardedListing(const std::string& configuration, Call call, Say say, const Waiting& waiting);

    /// The first listing of a call, settled and recorded. `named` are the services that the call
    /// names, `switched` those of them that it is to switch. Says which services are kept as
    /// switched off although they are not listed: those that the call names, or all.
    void begin(const Names& switched, const Names& named);
    /// The listing after the commands of a call: settled, but not recorded yet.
    void verify(const Names& switched);
    /// Saves the configuration and then the record, as far as they were changed.
    void save();

    Configuration& configuration() { return m_configuration; }
    const Configuration& configuration() const { return m_configuration; }
    const Lines& lines() const { return m_lines; }
    /// The line of a service; null if there is none.
    const Line* line_of(const std::string& name) const;
    /// Sets the line of a service, or removes it.
    void set_line(const std::string& name, const Line* line);
    /// What the latest listing showed, before it was settled.
    View view_of(const std::string& name) const;
    /// Makes all entries of a name say the same.
    void set_entries(const std::string& name, int op, const std::string& level);

private:
    void take_over();
    void list(const Names& switched, bool is_first);
    void settle(const Names& named, bool is_first);
    void settle_off(const std::string& name, Line& line, bool is_first) const;
    void set_ops(const std::string& name, std::initializer_list<int> from, int to);
    void tell_unlisted(const Names& named) const;

    Lock m_lock;
    Call m_call;
    Say m_say;
    Record m_record;
    Configuration m_configuration;
    Lines m_lines;
    std::map<std::string, View> m_views;
    std::set<std::string> m_taken_over;
};

} // namespace transaction
