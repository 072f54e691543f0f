#include "host/service_call.h"

#include "fwbase/xml_document.h"
#include "host/configuration_path.h"
#include "host/operation.h"
#include "host/service_names.h"
#include "host/signals.h"
#include "host/system_log.h"
#include "host/working_folder.h"

#include <map>

namespace host
{

namespace
{

using transaction::Outcome;

// The codes of a call that was only foretold: what the module answers to a success.
constexpr ec::EC rehearsed_result = 0x840C0000;
constexpr ec::EC rehearsed_code = 0x80000000;

/// Why the module's operation failed.
std::string failure_of(const std::string& operation)
{
    const std::string missing = missing_configuration();
    const std::string reason = missing.empty() ? fwbase::take_last_xml_error() : missing;
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

/// The calls of the module that a transaction makes. That of the requested operation, not the
/// listings around it, gives the answer.
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
        std::vector<transaction::Reply> replies;
        Answer made = call_directly(interface, part, replies);
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
        return replies;
    };
}

/// The ids of the requested services. Of those that are to be restored because they are recorded,
/// some may not be configured: what becomes of these is known at once.
transaction::Ids ids_of(const Call& call, const transaction::Transaction& transaction,
                        std::vector<Outcome>& unconfigured)
{
    if (call.arguments.ids) {
        return *call.arguments.ids;
    }
    std::vector<std::string> services = call.services;
    if (call.is_for_all) {
        const std::set<std::string> known = names_of(transaction.entries());
        for (const auto& [name, line] : transaction.record()) {
            if (line.state == transaction::State::ignored) {
                continue;
            }
            if (known.count(name) != 0) {
                services.push_back(name);
            } else {
                unconfigured.push_back({0, name, Outcome::not_handled, "not configured",
                                        how_to_restore(name, line), false});
            }
        }
    }
    try {
        return find_ids(services, transaction);
    } catch (const std::runtime_error& error) {
        throw Refused(error.what());
    }
}

/// The answer of the module to a call that is not made.
void foretell(Answer& answer)
{
    static const transaction::Ids none;
    answer.reply.reset(new fwbase::Message(rehearsed_code));
    answer.reply->params()->add(fwbase::Param::make(rpc::T_UINT32_LIST, &none, false).release());
    answer.result = rehearsed_result;
}

/// The run levels of the services that were switched, by name.
std::map<std::string, std::string> levels_of(const std::vector<Outcome>& outcomes,
                                             const transaction::Transaction& transaction)
{
    std::map<std::string, std::string> all;
    for (const transaction::Entry& entry : transaction.entries()) {
        all.emplace(entry.name, entry.level);
    }
    std::map<std::string, std::string> switched;
    for (const Outcome& each : outcomes) {
        if (each.kind == Outcome::done) {
            switched[each.name] = all[each.name];
        }
    }
    return switched;
}

} // namespace

Answer call_directly(rpc::IIfaceRealize& interface, const Call& call,
                     std::vector<transaction::Reply>& items)
{
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    Answer answer;
    ec::EC result = 0;
    answer.reply = call_module(
        interface, *make_call_block(call),
        [&items](const fwbase::Message& item) { add_replies(item, items); }, result);
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
    std::optional<transaction::Transaction> transaction;
    transaction.emplace(configuration_path, parts_of(interface, call, answer), say, waiting);
    const IgnoredSignals ignored_signals;
    answer.has_candidates = !transaction->entries().empty();
    if (operation.to == Operation::same) {
        answer.services = transaction->list();
        return answer;
    }
    if (is_rehearsal) {
        transaction->rehearse();
        foretell(answer);
    }
    std::vector<Outcome> unconfigured;
    const transaction::Ids ids = ids_of(call, *transaction, unconfigured);
    answer.outcomes = marks ? transaction->ignore(ids, call.arguments.flag.value_or(false))
                            : transaction->switch_services(ids, on);
    const auto switched = levels_of(answer.outcomes, *transaction);
    answer.outcomes.insert(answer.outcomes.end(), unconfigured.begin(), unconfigured.end());
    transaction.reset(); // a slow log must not hold the lock
    if (!marks && !is_rehearsal) {
        for (const auto& [name, levels] : switched) {
            log_switch(name, levels, on);
        }
    }
    return answer;
}

} // namespace host
