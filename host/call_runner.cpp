#include "host/call_runner.h"

#include "fwbase/xml_document.h"
#include "host/configuration_lock.h"
#include "host/journal.h"
#include "host/recovery.h"
#include "host/search_path.h"
#include "host/signals.h"
#include "host/standard_streams.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace host
{

namespace
{

constexpr const char* no_chkconfig = "no chkconfig on the search path";

/// An operation that writes.
struct Effects {
    std::string_view operation;
    bool uses_chkconfig;
    bool switches; ///< switches services on the machine
    bool changes;  ///< changes the state of the given services
};

constexpr Effects all_effects[] = {{"ls_service", true, false, false},
                                   {"optimize_service", true, true, true},
                                   {"restore_service", true, true, true},
                                   {"ignore_service", false, false, true},
                                   {"set_optimize_sorce", false, false, false}};

/// Null for an operation that only reads.
const Effects* effects_of(const Call& call)
{
    const auto* const found =
        std::find_if(std::begin(all_effects), std::end(all_effects),
                     [&call](const Effects& each) { return each.operation == call.operation; });
    return found == std::end(all_effects) ? nullptr : found;
}

/// Holds the lock, ignores signals and keeps the journal while a call that writes is made.
class Transaction
{
public:
    /// Waits for the lock, completes an interrupted call, and begins the journal. Throws
    /// std::runtime_error if the call must not be made.
    Transaction(const Call& call, const Effects& effects, const std::string& subject,
                rpc::IIfaceRealize& interface)
    {
        if (!m_lock) {
            return; // the configuration's folder is missing: the module fails and says so
        }
        if (const std::optional<Call> interrupted = m_journal.read()) {
            complete(*interrupted, subject, interface);
        }
        m_journal.clear();
        if (effects.switches) {
            m_journal.write(call);
        }
    }

    /// After a final reply that is a success.
    void end() const
    {
        if (m_lock) {
            m_journal.clear();
        }
    }

private:
    void complete(const Call& interrupted, const std::string& subject,
                  rpc::IIfaceRealize& interface) const
    {
        try {
            if (!is_on_search_path("chkconfig")) {
                throw std::runtime_error(no_chkconfig);
            }
            const std::string done = host::complete(interrupted, interface);
            if (!done.empty()) {
                complain(subject + done);
            }
        } catch (const std::exception& error) {
            throw std::runtime_error("cannot complete the interrupted " + interrupted.operation +
                                     to_text(*interrupted.arguments.ids) + ": " + error.what() +
                                     "; to give up, remove " + m_lock.path());
        }
    }

    ConfigurationLock m_lock;
    IgnoredSignals m_ignored_signals;
    Journal m_journal{m_lock};
};

/// Why an operation failed.
std::string failure_of(const Call& call)
{
    std::string reason = fwbase::take_last_xml_error();
    if (!reason.empty()) {
        return reason;
    }
    // Without an error of the XML library these fail in one way only.
    const std::string_view verb = std::string_view(call.operation).substr(0, 4);
    return verb == "get_" || verb == "set_" ? "the configuration lacks the element"
                                            : "failed; the module gave no reason";
}

Operations operations_of(const rpc::IIfaceRealize& interface)
{
    Operations all;
    interface.fatts(all);
    return all;
}

bool is_known(const std::string& operation, const rpc::IIfaceRealize& interface)
{
    const Operations all = operations_of(interface);
    return std::any_of(all.begin(), all.end(),
                       [&operation](const auto* each) { return each->name == operation; });
}

} // namespace

ExitStatus run(const Call& call, const std::string& origin, rpc::IIfaceRealize& interface,
               Printer& printer)
{
    if (call.operation == "attributes") {
        printer.attributes(*interface.iatt());
        return success;
    }
    if (call.operation == "operations") {
        printer.operations(operations_of(interface));
        return success;
    }

    const std::string subject = origin + call.operation + ": ";
    const Effects* const effects = effects_of(call);
    std::optional<Transaction> transaction;
    try {
        if (effects != nullptr) {
            if (effects->uses_chkconfig && !is_on_search_path("chkconfig")) {
                throw std::runtime_error(no_chkconfig);
            }
            transaction.emplace(call, *effects, subject, interface);
        }
    } catch (const std::runtime_error& error) {
        complain(subject + error.what());
        printer.refused(error.what());
        return no_reply;
    }

    std::vector<unsigned int> handled;
    const auto on_item = [&](const fwbase::Message& item) {
        add_ids(item, handled);
        printer.item(item);
    };
    fwbase::take_last_xml_error(); // discard the error of an earlier call
    Ending ending;
    const owned<fwbase::Message> reply =
        run_call(interface, *make_call_block(call), on_item, ending.result);
    const bool succeeded = reply && ec::succeeded(reply->code());
    if (succeeded && transaction) {
        transaction->end();
    }
    transaction.reset();

    ending.reply = reply.get();
    std::vector<unsigned int> missing;
    if (succeeded && call.arguments.ids) {
        missing = missing_ids(*call.arguments.ids, handled);
    }
    const bool is_incomplete = effects != nullptr && effects->changes && !missing.empty();
    if (is_incomplete) {
        ending.not_handled = missing;
    }
    if (reply && !succeeded) {
        ending.error = failure_of(call);
    }
    printer.end(ending);

    if (!reply) {
        complain(subject +
                 (is_known(call.operation, interface) ? "no reply" : "no such operation"));
        return no_reply;
    }
    if (!succeeded) {
        complain(subject + ending.error);
        return operation_failed;
    }
    if (!missing.empty()) {
        complain(subject + "not handled:" + to_text(missing));
    }
    return is_incomplete ? operation_failed : success;
}

} // namespace host
