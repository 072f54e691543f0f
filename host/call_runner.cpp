#include "host/call_runner.h"

#include "framework/xml.h"
#include "host/candidates.h"
#include "host/configuration_path.h"
#include "host/options.h"
#include "host/rehearsal.h"
#include "host/search_path.h"
#include "host/service_call.h"
#include "host/signals.h"
#include "host/standard_streams.h"
#include "host/text.h"
#include "host/working_folder.h"
#include "transaction/record.h"

#include <algorithm>
#include <cstdlib>

namespace host
{

namespace
{

using Kind = Operation::Kind;
using transaction::Outcome;
using transaction::Say;

Operations operations_of(const rpc::IIfaceRealize& interface)
{
    Operations all;
    interface.fatts(all);
    return all;
}

/// The requested ids that were not handled, each after a blank. The replies are in the order of the
/// request.
std::string missing_ids(const transaction::Ids& requested,
                        const std::vector<transaction::Reply>& replies)
{
    std::string missing;
    auto next = replies.begin();
    for (const unsigned int id : requested) {
        if (next != replies.end() && next->id == id) {
            ++next;
        } else {
            missing += " " + std::to_string(id);
        }
    }
    return missing;
}

} // namespace

ExitStatus CallRunner::run(const std::vector<std::string>& words, const std::string& origin)
{
    const std::string& name = words.front();
    if (!is_known(name)) {
        throw UsageError("'" + shortened(name) + "': no such operation; see optimize_host --help");
    }
    const Call call = to_call(words);
    const Say say = [subject = origin + name + ": "](const std::string& text) {
        complain(subject + for_people(text));
    };
    const auto refuse = [&](const std::exception& error, ExitStatus status) {
        say(error.what());
        m_printer.refused(for_people(error.what()));
        return status;
    };
    try {
        if (find_operation(name).kind == Kind::description) {
            describe(name);
            return success;
        }
        Answer answer = make(call, say);
        answer.error = for_people(answer.error);
        for (Outcome& each : answer.outcomes) {
            each.message = for_people(each.message);
        }
        return print(call, answer, say);
    } catch (const OutputError&) {
        throw; // no further call is made
    } catch (const Refused& error) {
        return refuse(error, operation_failed);
    } catch (const CLiteXmlException& error) {
        return refuse(error, operation_failed);
    } catch (const std::runtime_error& error) {
        return refuse(error, no_reply);
    }
}

bool CallRunner::is_known(const std::string& name) const
{
    const Operations all = operations_of(m_interface);
    return is_own(find_operation(name)) ||
           std::any_of(all.begin(), all.end(),
                       [&name](const auto* each) { return each->name == name; });
}

void CallRunner::describe(const std::string& name)
{
    if (name == "attributes") {
        m_printer.attributes(*m_interface.iatt());
    } else {
        m_printer.operations(operations_of(m_interface));
    }
}

/// Makes a call. Nothing is locked and no signal is ignored any more when it returns.
Answer CallRunner::make(const Call& call, const Say& say)
{
    const Operation& operation = find_operation(call.operation);
    const bool needs_configuration = operation.writes || operation.kind == Kind::record;
    const std::string missing = needs_configuration ? missing_configuration() : "";
    if (!missing.empty()) {
        throw Refused(missing);
    }
    if (operation.kind == Kind::record) {
        Answer answer;
        answer.record = transaction::Record(transaction::open_place(configuration_path)).read();
        return answer;
    }
    if (!operation.writes) {
        return call_directly(m_interface, call);
    }
    if (!m_manner.is_rehearsal) {
        return make_writing(call, say);
    }
    if (*operation.name == '\0') {
        throw Refused("cannot be combined with --dry-run: nobody knows what it changes");
    }
    const Rehearsal rehearsal(say, m_manner.waiting);
    Answer answer = make_writing(call, say);
    answer.is_rehearsal = operation.to != Operation::same || operation.kind != Kind::service_call;
    return answer;
}

/// Makes a call of an operation that may write. Holds the lock meanwhile.
Answer CallRunner::make_writing(const Call& call, const Say& say)
{
    switch (find_operation(call.operation).kind) {
    case Kind::service_call:
        require_command("chkconfig", std::getenv("PATH"));
        return call_in_transaction(m_interface, call, say, m_manner.waiting, m_manner.is_rehearsal);
    case Kind::edit: {
        Answer answer;
        answer.outcomes = edit_candidates(call, say, m_manner.waiting);
        return answer;
    }
    default:
        break;
    }
    const transaction::Lock lock(configuration_path, say, transaction::Lock::Create::yes,
                                 m_manner.waiting);
    const IgnoredSignals ignored_signals;
    return call_directly(m_interface, call);
}

/// Prints the answer, and tells people why the call failed, or which services were not handled, one
/// per line.
ExitStatus CallRunner::print(const Call& call, const Answer& answer, const Say& say)
{
    m_printer.answer(answer);
    const ExitStatus status = answer.status();
    const bool is_transaction = find_operation(call.operation).to != Operation::same;
    if (status == no_reply) {
        say("no reply");
    } else if (!answer.error.empty() && !is_transaction) { // a transaction has said it already
        say(answer.error);
    }
    for (const Outcome& each : answer.outcomes) {
        if (each.kind != Outcome::done) {
            say(transaction::sentence_of(each));
        }
    }
    if (status == success) {
        tell_what_lacks(call, answer, say);
    }
    return status;
}

/// Tells people what a call that succeeded did not do or find.
void CallRunner::tell_what_lacks(const Call& call, const Answer& answer, const Say& say) const
{
    const Operation& operation = find_operation(call.operation);
    const auto is_listed = [](const transaction::Service& each) { return each.is_listed; };
    if (operation.kind == Kind::service_call && operation.to == Operation::same &&
        std::none_of(answer.services.begin(), answer.services.end(), is_listed)) {
        say(answer.has_candidates
                ? std::string("none of the configured services is on: they are off or not "
                              "installed, or cannot be listed; see ") +
                      m_manner.list_command
                : std::string("no service is configured; ") +
                      (has_candidate_list() ? "add_service adds one"
                                            : "the element service_optimize is missing"));
    }
    if (answer.record && answer.record->empty()) {
        say("nothing is switched off or ignored");
    }
    if (call.is_for_all && answer.outcomes.empty()) {
        say("nothing is switched off");
    }
    if (operation.kind == Kind::call && call.arguments.ids &&
        answer.items.size() < call.arguments.ids->size()) {
        say("ids not handled:" + missing_ids(*call.arguments.ids, answer.items));
    }
}

} // namespace host
