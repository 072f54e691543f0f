#include "transaction/transaction.h"

#include "transaction/guarded_listing.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>

namespace transaction
{

namespace
{

using Names = std::vector<std::string>;

/// What became of a requested name.
struct Verdict {
    Outcome::Kind kind = Outcome::not_handled;
    std::string reason;
    std::string message;
};
using Verdicts = std::map<std::string, Verdict>;

/// A requested service.
struct Wish {
    unsigned int id;
    bool is_configured;
    std::string name;
    Ids ids; ///< of all entries of the name, as the first listing left them
};

/// What the first listing of a call showed of a name.
struct Before {
    View view;
    const Line* line; ///< after the listing was settled; null if the record has none
    Ids ids;
};

const Verdict done = {Outcome::done, "", ""};
const Verdict not_listed = {Outcome::not_handled, "not listed", "chkconfig does not list it"};
const Verdict switched_off_by_others = {Outcome::not_handled, "off",
                                        "it is off, but was not switched off by this program"};

/// For people: the state of a service that is not off, or not on in all of `levels`, after a
/// switch.
std::string position_of(const View& view, const std::string& levels)
{
    if (!view.is_on()) {
        return "it is still off";
    }
    if (!includes(view.level, levels)) {
        return "it is on in " + view.level + " of " + levels;
    }
    return "it is still on " +
           (view.level == "on" ? on_in(view.level) : "in run levels " + view.level);
}

} // namespace

/// A call on services, by name.
class Transaction::Work
{
public:
    Work(const std::string& configuration, Call call, const Say& say, const Waiting& waiting)
        : m_path(configuration), m_call(std::move(call)), m_say(say),
          m_machine(configuration, m_call, say, waiting)
    {
    }

    std::vector<Service> list();
    std::vector<Outcome> switch_services(const Ids& ids, bool on);
    std::vector<Outcome> ignore(const Ids& ids, bool flag);

    const GuardedListing& machine() const { return m_machine; }

    bool m_is_rehearsal = false;

private:
    std::vector<Wish> resolve(const Ids& ids) const;
    static Names names_of(const std::vector<Wish>& wishes);
    std::optional<Verdict> judge_switch(const std::string& name, bool on) const;
    Verdict begin_switch(const std::string& name, bool on);
    Verdict end_switch(const std::string& name, bool on, const Ids& handled, const Before& before);
    Verdict judge_mark(const std::string& name, bool flag) const;
    Verdict end_mark(const std::string& name, bool flag, const Ids& handled,
                     const std::string& failure, const Verdict& verdict, const Line* before);
    Ids call(const char* operation, bool flag, const Ids& ids, std::string& failure) const;
    Ids ids_of(const std::string& name) const;
    Ids ids_of(const Names& names) const;
    void add_ids(std::vector<Wish>& wishes) const;
    static std::vector<Outcome> outcomes(const std::vector<Wish>& wishes, const Verdicts& verdicts);

    std::string m_path;
    Call m_call;
    Say m_say;
    GuardedListing m_machine;
};

std::vector<Service> Transaction::Work::list()
{
    m_machine.begin({}, {});
    std::vector<Service> services;
    for (const Entry& entry : m_machine.configuration().entries()) {
        if (entry.op != unavailable) {
            const bool is_kept =
                entry.op == optimized && m_machine.view_of(entry.name).is_unlisted();
            services.push_back({entry, !is_kept});
        }
    }
    return services;
}

std::vector<Outcome> Transaction::Work::switch_services(const Ids& ids, bool on)
{
    std::vector<Wish> wishes = resolve(ids);
    const Names names = names_of(wishes);
    m_machine.begin(names, names);
    add_ids(wishes);

    const Lines before = m_machine.lines();
    Verdicts verdicts;
    Names switched;
    std::map<std::string, Before> first;
    for (const std::string& name : names) {
        const Line* const line = m_machine.line_of(name);
        Before as_listed = {m_machine.view_of(name), line == nullptr ? nullptr : &before.at(name),
                            ids_of(name)};
        verdicts[name] = begin_switch(name, on);
        if (verdicts[name].kind == Outcome::done) {
            switched.push_back(name);
            first.emplace(name, std::move(as_listed));
        }
    }
    const Ids switched_ids = ids_of(switched);
    if (m_is_rehearsal) {
        return outcomes(wishes, verdicts);
    }
    m_machine.save();
    std::string failure;
    const Ids handled =
        call(on ? "restore_service" : "optimize_service", false, switched_ids, failure);
    try {
        m_machine.verify(names);
        for (const auto& [name, as_listed] : first) {
            verdicts[name] = end_switch(name, on, handled, as_listed);
        }
        m_machine.save();
    } catch (const std::exception& error) { // the next call finds out what has happened
        for (const std::string& name : switched) {
            verdicts[name] = {Outcome::not_handled, "not verified",
                              std::string("not verified: ") + error.what()};
        }
    }
    return outcomes(wishes, verdicts);
}

std::vector<Outcome> Transaction::Work::ignore(const Ids& ids, bool flag)
{
    std::vector<Wish> wishes = resolve(ids);
    const Names names = names_of(wishes);
    m_machine.begin({}, names);
    add_ids(wishes);

    const Lines before = m_machine.lines();
    Verdicts verdicts;
    Names marked;
    for (const std::string& name : names) {
        const Verdict verdict = verdicts[name] = judge_mark(name, flag);
        if (verdict.kind == Outcome::done || !flag) {
            marked.push_back(name);
        }
        if (verdict.kind == Outcome::done) {
            const Line mark = {State::ignored, "-", now()};
            m_machine.set_line(name, flag ? &mark : nullptr);
        }
    }
    const Ids marked_ids = ids_of(marked);
    if (m_is_rehearsal) {
        return outcomes(wishes, verdicts);
    }
    m_machine.save();
    std::string failure;
    const Ids handled = call("ignore_service", flag, marked_ids, failure);
    for (const std::string& name : marked) {
        const auto old = before.find(name);
        verdicts[name] = end_mark(name, flag, handled, failure, verdicts[name],
                                  old == before.end() ? nullptr : &old->second);
    }
    try {
        m_machine.save();
    } catch (const std::exception& error) { // the marks that were made are recorded already
        m_say(error.what());
    }
    return outcomes(wishes, verdicts);
}

/// Decides what became of a name that the module was to mark, and of its line. `verdict` and
/// `before` are the verdict and the line from before the module's call.
Verdict Transaction::Work::end_mark(const std::string& name, bool flag, const Ids& handled,
                                    const std::string& failure, const Verdict& verdict,
                                    const Line* before)
{
    const Ids own = ids_of(name);
    const bool is_handled =
        std::find_first_of(own.begin(), own.end(), handled.begin(), handled.end()) != own.end();
    if (is_handled && flag && before != nullptr) {
        m_say(name + " is on in run levels " + m_machine.view_of(name).level +
              "; its run levels from before it was switched off, " + before->levels +
              ", are forgotten");
    }
    if (is_handled) {
        return done;
    }
    if (flag) {
        m_machine.set_line(name, before);
    }
    const bool is_off = !flag && failure.empty() && m_machine.view_of(name).is_unlisted();
    if (verdict.kind != Outcome::done || is_off) {
        return verdict;
    }
    return {Outcome::not_handled, "not verified",
            "not verified: " + (failure.empty() ? "the configuration was replaced" : failure)};
}

/// Has the module change services. Returns the ids that it handled, ascending. If the operation
/// fails, `failure` gets the reason. Commands may have run all the same; the next listing shows
/// what they did.
Ids Transaction::Work::call(const char* operation, bool flag, const Ids& ids,
                            std::string& failure) const
{
    Ids handled;
    try {
        for (const Reply& reply : m_call(operation, flag, ids)) {
            handled.push_back(reply.id);
        }
    } catch (const std::exception& error) {
        failure = error.what();
        m_say(failure);
    }
    std::sort(handled.begin(), handled.end());
    return handled;
}

Names Transaction::Work::names_of(const std::vector<Wish>& wishes)
{
    Names names;
    for (const Wish& wish : wishes) {
        if (wish.is_configured) {
            names.push_back(wish.name);
        }
    }
    return names;
}

/// The requested services, each name once and in the order of the request.
std::vector<Wish> Transaction::Work::resolve(const Ids& ids) const
{
    std::unordered_map<unsigned int, const Entry*> by_id;
    for (const Entry& entry : m_machine.configuration().entries()) {
        by_id.emplace(entry.id, &entry);
    }
    std::vector<Wish> wishes;
    std::set<std::string> names;
    std::set<unsigned int> unknown;
    for (const unsigned int id : ids) {
        const auto found = by_id.find(id);
        if (found == by_id.end()) {
            if (unknown.insert(id).second) {
                wishes.push_back({id, false, "", {id}});
            }
        } else if (names.insert(found->second->name).second) {
            wishes.push_back({id, true, found->second->name, {}});
        }
    }
    return wishes;
}

/// The verdict on a name that must not or need not be switched; none for any other name.
std::optional<Verdict> Transaction::Work::judge_switch(const std::string& name, bool on) const
{
    const View view = m_machine.view_of(name);
    const Line* const line = m_machine.line_of(name);
    if (!view.is_configured) {
        return Verdict{Outcome::not_handled, "not configured", "not configured any more"};
    }
    if (!is_recordable(name)) {
        return Verdict{Outcome::not_handled, "state " + std::to_string(view.op),
                       "its name has a blank, a control character or a '#' in front"};
    }
    if (line == nullptr ? view.op == ignored : line->state == State::ignored) {
        return Verdict{Outcome::not_handled, "ignored", "it is marked as ignored"};
    }
    bool is_there_already = false;
    if (line != nullptr) {
        is_there_already =
            !on && (view.is_off() || (view.is_unlisted() && line->state == State::off));
    } else if (!view.is_unlisted()) {
        is_there_already = on && view.is_on();
    } else if (view.level != "off") {
        return not_listed;
    } else if (on) {
        return switched_off_by_others;
    } else {
        is_there_already = true;
    }
    if (is_there_already) {
        return Verdict{Outcome::unchanged, "", on ? "already on" : "already off"};
    }
    return std::nullopt;
}

/// Decides what a switching call does with a name. Outcome::done means that the module is to switch
/// it: then its entries are in the state from which the operation starts, and it has a line.
Verdict Transaction::Work::begin_switch(const std::string& name, bool on)
{
    if (const std::optional<Verdict> verdict = judge_switch(name, on)) {
        return *verdict;
    }
    const View view = m_machine.view_of(name);
    const Line* const line = m_machine.line_of(name);
    const int start = on ? optimized : none;
    if (line != nullptr && (view.is_unlisted() || line->state == State::partly)) {
        const bool is_partly_on = view.is_on() && !on;
        m_machine.set_entries(name, start,
                              is_partly_on ? unite(line->levels, view.level) : line->levels);
    }
    for (const std::size_t position : m_machine.configuration().find(name)) {
        const Entry& entry = m_machine.configuration().entries()[position];
        if (entry.op == start && is_level(entry.level)) {
            const Line begun = {on ? State::switching_on : State::switching_off, entry.level,
                                line == nullptr ? now() : line->since};
            m_machine.set_line(name, &begun);
            return done;
        }
    }
    return {Outcome::not_handled, "state " + std::to_string(view.op),
            "its entry in the configuration cannot be switched"};
}

/// Decides what became of a name that the module was to switch, and of its line.
Verdict Transaction::Work::end_switch(const std::string& name, bool on, const Ids& handled,
                                      const Before& before)
{
    const View view = m_machine.view_of(name);
    const Line* const line = m_machine.line_of(name);
    const bool is_handled =
        std::all_of(before.ids.begin(), before.ids.end(), [&handled](unsigned int id) {
            return std::binary_search(handled.begin(), handled.end(), id);
        });
    if (on ? line == nullptr : view.is_off() && line != nullptr && line->state == State::off) {
        return done;
    }
    if (view.is_unlisted() && before.view.is_unlisted()) {
        // No listing shows the service, so the exit status of the command decides. A restored
        // service keeps its line until a listing shows that it is on.
        if (!is_handled) {
            m_machine.set_line(name, before.line);
            return {Outcome::not_handled, "command failed",
                    "command failed; chkconfig does not list it"};
        }
        if (!on) {
            const Line off = {State::off, line->levels, line->since};
            m_machine.set_line(name, &off);
        }
        return done;
    }
    if (!view.is_on() && !view.is_off()) {
        return {Outcome::not_handled, "not verified",
                view.is_configured ? "not verified: chkconfig does not list it any more"
                                   : "not verified: it is not configured any more"};
    }
    std::string message = is_handled ? "the command succeeded, but " : "command failed; ";
    message += position_of(view, line == nullptr ? view.level : line->levels);
    if (on && !is_handled && before.line != nullptr && before.line->levels == "on" &&
        view.is_off()) {
        message += "; if xinetd does not start it any more, switch it on by hand: chkconfig "
                   "--level LEVELS " +
                   name + " on";
    }
    return {Outcome::not_handled, !is_handled ? "command failed" : (on ? "still off" : "still on"),
            message};
}

/// Decides what ignore_service does with a name; `done` means that the module is to mark it.
Verdict Transaction::Work::judge_mark(const std::string& name, bool flag) const
{
    const View view = m_machine.view_of(name);
    const Line* const line = m_machine.line_of(name);
    const bool is_ignored = line != nullptr && line->state == State::ignored;
    const std::vector<std::size_t>& positions = m_machine.configuration().find(name);
    const bool is_on = std::any_of(positions.begin(), positions.end(), [this](std::size_t at) {
        return m_machine.configuration().entries()[at].op == none;
    });
    if (!view.is_configured) {
        return {Outcome::not_handled, "not configured", "not configured any more"};
    }
    if (is_ignored == flag && (is_ignored || is_on)) {
        return {Outcome::unchanged, "", flag ? "already ignored" : "not ignored"};
    }
    if (is_ignored) {
        return done;
    }
    if (line != nullptr && line->state != State::partly && line->state != State::switching_on) {
        return {Outcome::not_handled, "optimized", "it is switched off"};
    }
    if (is_on && is_recordable(name)) {
        return done;
    }
    if (view.is_unlisted()) {
        return view.level == "off" ? switched_off_by_others : not_listed;
    }
    return {Outcome::not_handled, "state " + std::to_string(view.op),
            "its entry in the configuration cannot be marked"};
}

void Transaction::Work::add_ids(std::vector<Wish>& wishes) const
{
    for (Wish& wish : wishes) {
        if (wish.is_configured) {
            wish.ids = ids_of(wish.name);
        }
        if (wish.ids.empty()) { // not configured any more
            wish.ids.push_back(wish.id);
        }
    }
}

/// The ids of all entries of a name, each once.
Ids Transaction::Work::ids_of(const std::string& name) const
{
    Ids ids;
    for (const std::size_t position : m_machine.configuration().find(name)) {
        const unsigned int id = m_machine.configuration().entries()[position].id;
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) {
            ids.push_back(id);
        }
    }
    return ids;
}

/// The ids of several names. The module takes the first entry of an id, which may be another
/// service's: such an id is refused.
Ids Transaction::Work::ids_of(const std::vector<std::string>& names) const
{
    const std::set<std::string> wanted(names.begin(), names.end());
    std::unordered_map<unsigned int, const std::string*> owners;
    for (const Entry& entry : m_machine.configuration().entries()) {
        const std::string& owner = *owners.emplace(entry.id, &entry.name).first->second;
        if (owner != entry.name && (wanted.count(owner) + wanted.count(entry.name)) != 0) {
            throw CLiteXmlException(m_path, 0,
                                    "'" + owner + "' and '" + entry.name + "' have the same id " +
                                        std::to_string(entry.id));
        }
    }
    Ids ids;
    for (const std::string& name : names) {
        const Ids own = ids_of(name);
        ids.insert(ids.end(), own.begin(), own.end());
    }
    return ids;
}

/// One outcome for each entry of the requested names.
std::vector<Outcome> Transaction::Work::outcomes(const std::vector<Wish>& wishes,
                                                 const Verdicts& verdicts)
{
    std::vector<Outcome> all;
    for (const Wish& wish : wishes) {
        const Verdict verdict =
            wish.is_configured ? verdicts.at(wish.name)
                               : Verdict{Outcome::not_handled, "not configured", "not configured"};
        for (const unsigned int id : wish.ids) {
            all.push_back({id, wish.name, verdict.kind, verdict.reason, verdict.message});
        }
    }
    return all;
}

std::string sentence_of(const Outcome& outcome)
{
    const std::string id = std::to_string(outcome.id);
    const std::string service =
        outcome.name.empty() ? "id " + id : outcome.name + (outcome.has_id ? " (" + id + ")" : "");
    return service + (outcome.kind == Outcome::unchanged ? " is " : " not handled: ") +
           outcome.message;
}

Transaction::Transaction(const std::string& configuration, Call call, const Say& say,
                         const Waiting& waiting)
    : m_work(new Work(configuration, std::move(call), say, waiting))
{
}

Transaction::~Transaction() = default;

const std::vector<Entry>& Transaction::entries() const
{
    return m_work->machine().configuration().entries();
}

const Lines& Transaction::record() const
{
    return m_work->machine().lines();
}

std::vector<Service> Transaction::list()
{
    return m_work->list();
}

std::vector<Outcome> Transaction::switch_services(const Ids& ids, bool on)
{
    return m_work->switch_services(ids, on);
}

std::vector<Outcome> Transaction::ignore(const Ids& ids, bool flag)
{
    return m_work->ignore(ids, flag);
}

void Transaction::rehearse()
{
    m_work->m_is_rehearsal = true;
}

} // namespace transaction
