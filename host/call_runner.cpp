#include "host/call_runner.h"

#include "framework/xml.h"
#include "fwbase/xml_document.h"
#include "host/configuration_path.h"
#include "host/options.h"
#include "host/rehearsal.h"
#include "host/search_path.h"
#include "host/service_names.h"
#include "host/signals.h"
#include "host/standard_streams.h"
#include "host/working_folder.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace host
{

namespace
{

using transaction::Outcome;

// The codes of a call that was only foretold: what the module answers to a success.
constexpr ec::EC rehearsed_result = 0x840C0000;
constexpr ec::EC rehearsed_code = 0x80000000;
constexpr const char* no_service_listed = "none of the configured services is on: they are off or "
                                          "not installed, or chkconfig cannot list "
                                          "them; see chkconfig --list";

/// A call was not made, or not to its end, for a reason that is not the lock's or the record's.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

bool switches(const Call& call)
{
    return call.operation == "optimize_service" || call.operation == "restore_service";
}

/// Whether a call needs a transaction.
bool changes_services(const Call& call)
{
    return switches(call) || call.operation == "ignore_service";
}

Operations operations_of(const rpc::IIfaceRealize& interface)
{
    Operations all;
    interface.fatts(all);
    return all;
}

/// Why the module's operation failed.
std::string failure_of(const std::string& operation)
{
    const std::string missing = missing_configuration();
    std::string reason = missing.empty() ? fwbase::take_last_xml_error() : missing;
    if (!reason.empty()) {
        return reason;
    }
    // Without an error of the XML library these fail in one way only.
    const std::string_view verb = std::string_view(operation).substr(0, 4);
    return verb == "get_" || verb == "set_" ? "the configuration lacks the element"
                                            : "failed; the module gave no reason";
}

/// The ids of the requested services.
transaction::Ids ids_of(const Call& call, const transaction::Transaction& transaction)
{
    if (call.services.empty()) {
        return *call.arguments.ids;
    }
    try {
        return find_ids(call.services, transaction);
    } catch (const std::runtime_error& error) {
        throw Refused(error.what());
    }
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

std::string label(const Outcome& outcome)
{
    const std::string id = std::to_string(outcome.id);
    return outcome.name.empty() ? "id " + id : outcome.name + " (" + id + ")";
}

} // namespace

struct CallRunner::Answer {
    owned<fwbase::Message> reply; ///< the final one
    ec::EC result = 0;
    std::vector<transaction::Service> services = {};
    std::vector<Outcome> outcomes = {};
    std::vector<transaction::Reply> items = {}; ///< of a call without a transaction
    bool has_candidates = true;                 ///< services are configured
    std::string error = {};                     ///< why the operation failed
    bool is_rehearsal = false;
};

ExitStatus CallRunner::run(const std::vector<std::string>& words, const std::string& origin)
{
    if (!is_known(words.front())) {
        throw UsageError((words.front().empty() ? "''" : words.front()) +
                         ": no such operation; see optimize_host --help");
    }
    const Call call = to_call(words);
    if (m_is_rehearsal && call.operation == "set_optimize_sorce") {
        throw UsageError("set_optimize_sorce: cannot be combined with --dry-run");
    }
    if (call.operation == "attributes") {
        m_printer.attributes(*m_interface.iatt());
        return success;
    }
    if (call.operation == "operations") {
        m_printer.operations(operations_of(m_interface));
        return success;
    }
    const std::string subject = origin + call.operation + ": ";
    const auto refuse = [&](const std::exception& error, ExitStatus status) {
        complain(subject + error.what());
        m_printer.refused(error.what());
        return status;
    };
    try {
        return print(call, make(call, subject), subject);
    } catch (const Refused& error) {
        return refuse(error, operation_failed);
    } catch (const CLiteXmlException& error) {
        return refuse(error, operation_failed);
    } catch (const std::runtime_error& error) {
        return refuse(error, no_reply);
    }
}

bool CallRunner::is_known(const std::string& operation) const
{
    const Operations all = operations_of(m_interface);
    return operation == "attributes" || operation == "operations" ||
           std::any_of(all.begin(), all.end(),
                       [&operation](const auto* each) { return each->name == operation; });
}

/// Makes a call. Nothing is locked and no signal is ignored any more when it returns.
CallRunner::Answer CallRunner::make(const Call& call, const std::string& subject)
{
    const bool is_transaction = call.operation == "ls_service" || changes_services(call);
    const bool sets = call.operation == "set_optimize_sorce";
    const std::string missing = is_transaction || sets ? missing_configuration() : "";
    if (!missing.empty()) {
        throw Refused(missing);
    }
    const transaction::Say say = [&subject](const std::string& text) { complain(subject + text); };
    if (is_transaction) {
        return transact(call, say);
    }
    std::optional<transaction::Lock> lock;
    std::optional<IgnoredSignals> ignored_signals;
    if (sets) {
        lock.emplace(configuration_path, say);
        ignored_signals.emplace();
    }
    Answer answer;
    make_call(call, answer, answer.items);
    return answer;
}

/// Lists, switches or ignores services.
CallRunner::Answer CallRunner::transact(const Call& call, const transaction::Say& say)
{
    if (!is_on_search_path("chkconfig")) {
        throw std::runtime_error("no chkconfig on the search path");
    }
    std::optional<Rehearsal> rehearsal;
    if (m_is_rehearsal) {
        rehearsal.emplace(say);
    }
    Answer answer;
    const auto make_part = [&](const std::string& operation, bool flag,
                               const transaction::Ids& ids) {
        Call part{operation, {}};
        if (operation == "ignore_service") {
            part.arguments.flag = flag;
        }
        if (operation != "ls_service") {
            part.arguments.ids = ids;
        }
        std::vector<transaction::Reply> replies;
        Answer other; // of a listing within the call
        Answer& own = operation == call.operation ? answer : other;
        make_call(part, own, replies);
        if (!own.reply) {
            throw std::runtime_error(operation + ": no reply");
        }
        if (!own.error.empty()) {
            throw Refused(own.error);
        }
        return replies;
    };
    transaction::Transaction transaction(configuration_path, make_part, say);
    const IgnoredSignals ignored_signals;
    answer.has_candidates = !transaction.entries().empty();
    if (call.operation == "ls_service") {
        answer.services = transaction.list();
        return answer;
    }
    if (rehearsal) {
        transaction.rehearse();
        static const transaction::Ids none;
        answer.reply.reset(new fwbase::Message(rehearsed_code));
        answer.reply->params()->add(
            fwbase::Param::make(rpc::T_UINT32_LIST, &none, false).release());
        answer.result = rehearsed_result;
        answer.is_rehearsal = true;
    }
    const transaction::Ids ids = ids_of(call, transaction);
    answer.outcomes = switches(call)
                          ? transaction.switch_services(ids, call.operation == "restore_service")
                          : transaction.ignore(ids, call.arguments.flag.value_or(false));
    return answer;
}

/// Makes one call of the module and keeps its end in `answer`.
void CallRunner::make_call(const Call& call, Answer& answer,
                           std::vector<transaction::Reply>& replies)
{
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    answer.reply = run_call(
        m_interface, *make_call_block(call),
        [&replies](const fwbase::Message& item) { add_replies(item, replies); }, answer.result);
    if (answer.reply && !ec::succeeded(answer.reply->code())) {
        answer.error = failure_of(call.operation);
    }
}

/// Prints the answer, and tells people why the call failed, or which services were not handled, one
/// per line.
ExitStatus CallRunner::print(const Call& call, const Answer& answer, const std::string& subject)
{
    m_printer.services(answer.services);
    m_printer.end(
        {answer.result, answer.reply.get(), answer.outcomes, answer.error, answer.is_rehearsal});
    ExitStatus status = success;
    if (!answer.reply) {
        complain(subject + "no reply");
        status = no_reply;
    } else if (!answer.error.empty()) {
        if (!changes_services(call)) { // the transaction has said it
            complain(subject + answer.error);
        }
        status = operation_failed;
    }
    for (const Outcome& each : answer.outcomes) {
        if (each.kind == Outcome::unchanged) {
            complain(subject + label(each) + " is " + each.message);
        } else if (each.kind == Outcome::not_handled) {
            complain(subject + label(each) + " not handled: " + each.message);
            status = std::max(status, operation_failed);
        }
    }
    const auto is_listed = [](const transaction::Service& each) { return each.is_listed; };
    if (status == success && call.operation == "ls_service" &&
        std::none_of(answer.services.begin(), answer.services.end(), is_listed)) {
        complain(subject +
                 (answer.has_candidates ? no_service_listed : "no service is configured"));
    }
    if (status == success && !changes_services(call) && call.arguments.ids &&
        answer.items.size() < call.arguments.ids->size()) {
        complain(subject + "not handled:" + missing_ids(*call.arguments.ids, answer.items));
    }
    return status;
}

} // namespace host
