// Lists the machine, and keeps the record and the configuration in line with it.
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

/// What a listing showed of a service, as the first of its entries says.
struct View {
    bool is_configured;
    int op;
    std::string level;

    bool is_on() const { return is_configured && op == none; }
    /// Only for a service with a line in the record: without one, the module calls a service that
    /// is off unavailable.
    bool is_off() const { return is_configured && op == optimized; }
    bool is_unlisted() const { return is_configured && op == unavailable; }
};

/// The lock, the record and the configuration of one call, and what its latest listing showed.
/// Throws as Transaction does.
class GuardedListing
{
public:
    using Names = std::vector<std::string>;

    /// Waits for the lock, and reads the configuration and the record. Adds a line to the record
    /// for each service that only the configuration marks as switched off or ignored.
    GuardedListing(const std::string& configuration, Call call, Say say, const Waiting& waiting);

    /// Makes the first listing of a call, settles it, which means that the record and the
    /// configuration are brought in line with it, and saves both. `named` are the services that the
    /// call names, `switched` those of them that it is to switch. Says which services are kept as
    /// switched off although chkconfig does not list them: those in `named`, or all if it is empty.
    void begin(const Names& switched, const Names& named);
    /// Lists again after the commands of a call, and settles the listing. Saves the configuration,
    /// but not the record.
    void verify(const Names& switched);
    /// Saves the configuration and then the record, as far as they were changed.
    void save();

    Configuration& configuration() { return m_configuration; }
    const Configuration& configuration() const { return m_configuration; }
    const Lines& lines() const { return m_lines; }
    /// The line of a service in the record; null if it has none.
    const Line* line_of(const std::string& name) const;
    /// Sets the line of a service, or removes it if `line` is null.
    void set_line(const std::string& name, const Line* line);
    /// What the latest listing showed, before it was settled.
    View view_of(const std::string& name) const;
    /// Gives all entries of a name this state and this level.
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
