#include "host/service_call.h"

#include "fwbase/reply.h"
#include "host/configuration_path.h"
#include "host/operation.h"
#include "host/service_names.h"
#include "host/signals.h"
#include "host/system_log.h"
#include "host/working_folder.h"

#include <algorithm>
#include <map>
#include <set>

namespace host
{

namespace
{

using transaction::Outcome;

// The codes of a call that was not made because of --dry-run: those of a success.
constexpr ec::EC rehearsed_result = 0x840C0000;
constexpr ec::EC rehearsed_code = 0x80000000;

/// Why the module's operation failed.
std::string failure_of(const std::string& operation)
{
    const std::string missing = missing_configuration();
    std::string reason = missing.empty() ? fwbase::take_last_xml_error() : missing;
    if (!reason.empty()) {
        return reason;
    }
    // Without an error of the XML library, an operation that reads an element fails in one way
    // only.
    const char* const element = find_operation(operation).element;
    return element == nullptr
               ? "failed; the module gave no reason"
               : std::string(configuration_path) + ": the element " + element + " is missing";
}

/// A function that makes the module's calls for a transaction. The call of the requested operation
/// fills `answer`; the listings before and after it do not.
transaction::Call parts_of(rpc::IIfaceRealize& interface, const Call& call, Answer& answer)
{
    return [&](const std::string& operation, bool flag, const transaction::Ids& ids) {
        Call part{operation, {}};
        if (find_operation(operation).to == transaction::ignored) {
            part.arguments.flag = flag;
        }
        if (find_operation(operation).to != Operation::same) {
            part.arguments.ids = ids;
        }
        Answer made = call_directly(interface, part);
        const bool has_reply = made.reply != nullptr;
        const std::string error = made.error;
        if (operation == call.operation) {
            answer.result = made.result;
            answer.reply = std::move(made.reply);
            answer.error = error;
        }
        if (!has_reply) {
            throw std::runtime_error(operation + ": no reply");
        }
        if (!error.empty()) {
            throw Refused(error);
        }
        return std::move(made.items);
    };
}

/// The ids of all services that are recorded as switched off. Those that are not configured have no
/// id: their outcomes are appended to `unconfigured`.
transaction::Ids ids_of_all(const transaction::Transaction& transaction,
                            std::vector<Outcome>& unconfigured)
{
    const auto is_off = [](const transaction::Line& line) {
        return line.state != transaction::State::ignored;
    };
    const transaction::Lines& lines = transaction.record();
    transaction::Ids ids;
    std::set<std::string> configured;
    for (const transaction::Entry& entry : transaction.entries()) {
        const auto line = lines.find(entry.name);
        if (line != lines.end() && is_off(line->second)) {
            ids.push_back(entry.id);
            configured.insert(entry.name);
        }
    }
    for (const auto& [name, line] : lines) {
        if (is_off(line) && configured.count(name) == 0) {
            unconfigured.push_back({0, name, Outcome::not_handled, "not configured",
                                    how_to_restore(name, line.levels), false});
        }
    }
    return ids;
}

/// The ids of the requested services.
transaction::Ids ids_of(const Call& call, const transaction::Transaction& transaction)
{
    try {
        return call.arguments.ids ? *call.arguments.ids : find_ids(call.services, transaction);
    } catch (const std::runtime_error& error) {
        throw Refused(error.what());
    }
}

/// Fills the answer of a call that is not made because of --dry-run as the module would.
void foretell(Answer& answer)
{
    static const transaction::Ids none;
    answer.reply.reset(new fwbase::Message(rehearsed_code));
    answer.reply->params()->add(fwbase::Param::make(rpc::T_UINT32_LIST, &none, false).release());
    answer.result = rehearsed_result;
}

/// The lines for the system log: what was switched, perhaps only in part, and what an interrupted
/// call had switched. `before` is the record before the call.
std::vector<std::string> history(const std::vector<Outcome>& outcomes, bool on,
                                 const transaction::Lines& before,
                                 const transaction::Transaction& transaction)
{
    std::map<std::string, std::string> levels;
    for (const transaction::Entry& entry : transaction.entries()) {
        levels.emplace(entry.name, transaction::on_in(entry.level));
    }
    std::vector<std::string> texts;
    const auto add = [&](const std::string& name, bool is_on, const char* who) {
        texts.push_back(name + (is_on ? " switched back on, " : " switched off, was on ") +
                        levels[name] + who);
    };
    for (const auto& [name, line] : before) {
        const auto now = transaction.record().find(name);
        const bool has_line = now != transaction.record().end();
        if (line.state == transaction::State::switching_off && has_line &&
            now->second.state == transaction::State::off) {
            add(name, false, ", by an interrupted call");
        } else if (line.state == transaction::State::switching_on && !has_line) {
            add(name, true, ", by an interrupted call");
        }
    }
    std::set<std::string> told;
    for (const Outcome& each : outcomes) {
        const bool may_be_switched = each.reason == "command failed" || each.reason == "still on" ||
                                     each.reason == "still off" || each.reason == "not verified";
        if (!told.insert(each.name).second) {
            continue;
        }
        if (each.kind == Outcome::done) {
            add(each.name, on, "");
        } else if (may_be_switched) {
            texts.push_back(each.name + (on ? " not switched back on: " : " not switched off: ") +
                            each.message);
        }
    }
    return texts;
}

} // namespace

Answer call_directly(rpc::IIfaceRealize& interface, const Call& call)
{
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    Answer answer;
    ec::EC result = 0;
    answer.reply = call_module(
        interface, *make_call_block(call),
        [&answer](const fwbase::Message& item) { add_replies(item, answer.items); }, result);
    answer.result = result;
    if (answer.reply && !ec::succeeded(answer.reply->code())) {
        answer.error = failure_of(call.operation);
    }
    return answer;
}

Answer call_in_transaction(rpc::IIfaceRealize& interface, const Call& call,
                           const transaction::Say& say, const transaction::Waiting& waiting,
                           bool is_rehearsal)
{
    const Operation& operation = find_operation(call.operation);
    const bool marks = operation.to == transaction::ignored;
    const bool on = operation.to == transaction::none;
    Answer answer;
    std::vector<Outcome> unconfigured;
    std::optional<transaction::Transaction> transaction;
    transaction.emplace(configuration_path, parts_of(interface, call, answer), say, waiting);
    const IgnoredSignals ignored_signals;
    const transaction::Lines before = transaction->record();
    answer.has_candidates = !transaction->entries().empty();
    if (operation.to == Operation::same) {
        answer.services = transaction->list();
    } else {
        if (is_rehearsal) {
            transaction->rehearse();
            foretell(answer);
        }
        const transaction::Ids ids =
            call.is_for_all ? ids_of_all(*transaction, unconfigured) : ids_of(call, *transaction);
        answer.outcomes = marks ? transaction->ignore(ids, call.arguments.flag.value_or(false))
                                : transaction->switch_services(ids, on);
    }
    std::vector<std::string> lines;
    if (!is_rehearsal) {
        const bool switches = operation.to != Operation::same && !marks;
        lines = history(switches ? answer.outcomes : unconfigured, on, before, *transaction);
    }
    answer.outcomes.insert(answer.outcomes.end(), unconfigured.begin(), unconfigured.end());
    transaction.reset(); // a slow log must not hold the lock
    std::for_each(lines.begin(), lines.end(), log_line);
    return answer;
}

} // namespace host
