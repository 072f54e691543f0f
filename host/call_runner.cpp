#include "host/call_runner.h"

#include "fwbase/xml_document.h"
#include "host/configuration_lock.h"
#include "host/journal.h"
#include "host/options.h"
#include "host/recovery.h"
#include "host/search_path.h"
#include "host/service_changes.h"
#include "host/signals.h"
#include "host/standard_streams.h"
#include "host/working_folder.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace host
{

namespace
{

constexpr const char* no_chkconfig = "no chkconfig on the search path";
constexpr const char* no_service_listed = "none of the configured services is on: they are off or "
                                          "not installed, or chkconfig cannot list "
                                          "them; see chkconfig --list";

/// An operation that writes.
struct Effects {
    std::string_view operation;
    bool uses_chkconfig;
    bool switches; ///< services on the machine
};

constexpr Effects all_effects[] = {{"ls_service", true, false},
                                   {"optimize_service", true, true},
                                   {"restore_service", true, true},
                                   {"ignore_service", false, false},
                                   {"set_optimize_sorce", false, false}};

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
    /// Waits for the lock and completes an interrupted call. Throws std::runtime_error if no call
    /// must be made.
    Transaction(const std::string& subject, rpc::IIfaceRealize& interface) : m_lock(subject)
    {
        if (const std::optional<Call> interrupted = m_journal.read()) {
            complete(*interrupted, subject, interface);
        }
        m_journal.clear();
    }

    /// Begins the journal of a call that switches services. Throws std::runtime_error.
    void begin(const Call& call) const { m_journal.write(call); }

    /// After a final reply that is a success.
    void end() const { m_journal.clear(); }

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
    std::string missing = missing_configuration();
    if (!missing.empty()) {
        return missing;
    }
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
    return operation == "attributes" || operation == "operations" ||
           std::any_of(all.begin(), all.end(),
                       [&operation](const auto* each) { return each->name == operation; });
}

/// The configured services. None if the file cannot be read: the module reports that.
std::vector<Entry> try_read_configuration()
{
    try {
        return read_configuration();
    } catch (const std::exception&) {
        return {};
    }
}

/// Replaces names by ids. Before it switches off services by name it lists, because nobody has to
/// have seen a listing to know a name: the run levels must be recorded. A listing while xinetd is
/// off would forget which of its services were switched off, so restoring and ignoring do without
/// it, and so does this once xinetd itself was switched off. Throws ConfigurationError.
void resolve_names(Call& call, rpc::IIfaceRealize& interface)
{
    try {
        const std::vector<Entry> entries = read_configuration();
        call.arguments.ids = find_ids(call.services, entries);
        const bool is_xinetd_off =
            std::any_of(entries.begin(), entries.end(), [](const Entry& entry) {
                return entry.name == "xinetd" && entry.op == optimized;
            });
        if (call.operation == "optimize_service" && !is_xinetd_off) {
            run_silently({"ls_service", {}}, interface);
        }
    } catch (const std::exception& error) {
        throw ConfigurationError(error.what());
    }
}

/// Begins a call that writes; returns null for another one. Throws std::runtime_error if the call
/// must not be made.
std::unique_ptr<Transaction> begin(Call& call, const std::string& subject,
                                   rpc::IIfaceRealize& interface)
{
    const Effects* const effects = effects_of(call);
    if (effects == nullptr) {
        return nullptr;
    }
    if (effects->uses_chkconfig && !is_on_search_path("chkconfig")) {
        throw std::runtime_error(no_chkconfig);
    }
    auto transaction = std::make_unique<Transaction>(subject, interface);
    if (!call.services.empty()) {
        resolve_names(call, interface);
    }
    if (effects->switches) {
        transaction->begin(call);
    }
    return transaction;
}

/// Tells people why a call failed, or which services were not handled, one per line.
ExitStatus conclude(const Ending& ending, const std::string& subject)
{
    if (ending.reply == nullptr) {
        complain(subject + "no reply");
        return no_reply;
    }
    if (!ending.error.empty()) {
        complain(subject + ending.error);
        return operation_failed;
    }
    const auto label = [](const Unhandled& each) {
        const std::string id = std::to_string(each.id);
        return each.name.empty() ? "id " + id : each.name + " (" + id + ")";
    };
    for (const Unhandled& each : ending.unchanged) {
        complain(subject + label(each) + " is " + each.reason);
    }
    for (const Unhandled& each : ending.not_handled) {
        std::string text = subject + label(each) + " not handled: " + each.reason;
        if (each.reason == command_failed) {
            text += ", perhaps halfway; see chkconfig --list " + each.name;
        }
        complain(text);
    }
    return ending.not_handled.empty() ? success : operation_failed;
}

} // namespace

ExitStatus run(const std::vector<std::string>& words, const std::string& origin,
               rpc::IIfaceRealize& interface, Printer& printer)
{
    if (!is_known(words.front(), interface)) {
        throw UsageError((words.front().empty() ? "''" : words.front()) +
                         ": no such operation; see optimize_host --help");
    }
    Call call = to_call(words);
    if (call.operation == "attributes") {
        printer.attributes(*interface.iatt());
        return success;
    }
    if (call.operation == "operations") {
        printer.operations(operations_of(interface));
        return success;
    }

    const std::string subject = origin + call.operation + ": ";
    const auto refuse = [&](const std::exception& error, ExitStatus status) {
        complain(subject + error.what());
        printer.refused(error.what());
        return status;
    };
    std::unique_ptr<Transaction> transaction;
    try {
        transaction = begin(call, subject, interface);
    } catch (const ConfigurationError& error) {
        return refuse(error, operation_failed);
    } catch (const std::runtime_error& error) {
        return refuse(error, no_reply);
    }
    const Change* const change = change_of(call);
    std::vector<Entry> entries;
    if (change != nullptr || call.operation == "ls_service") {
        entries = try_read_configuration();
        printer.begin(names_of(entries, change));
    }

    std::vector<unsigned int> handled;
    std::size_t items = 0;
    const auto on_item = [&](const fwbase::Message& item) {
        ++items;
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
    if (change != nullptr) {
        explain(missing, entries, *change, ending);
    }
    if (reply && !succeeded) {
        ending.error = failure_of(call);
    }
    printer.end(ending);
    const ExitStatus status = conclude(ending, subject);
    if (change == nullptr && !missing.empty()) {
        complain(subject + "not handled:" + to_text(missing));
    }
    if (succeeded && call.operation == "ls_service" && items == 0) {
        complain(subject + (entries.empty() ? "no service is configured" : no_service_listed));
    }
    return status;
}

} // namespace host
