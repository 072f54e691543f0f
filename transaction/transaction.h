// Carries a call that lists, switches or ignores services to its end, so that nothing that was
// switched off is ever forgotten.
#pragma once

#include "transaction/calls.h"
#include "transaction/entry.h"
#include "transaction/line.h"

#include <memory>
#include <string>
#include <vector>

namespace transaction
{

/// A service of a listing.
struct Service {
    Entry entry;
    bool is_listed; ///< false: chkconfig does not list it; the record says that it is switched off
};

/// What became of one requested service; texts are UTF-8.
struct Outcome {
    enum Kind { done, unchanged, not_handled };

    unsigned int id;
    std::string name; ///< empty if no service has the requested id
    Kind kind;
    std::string reason;  ///< why the service was not handled: a word or two for programs
    std::string message; ///< the reason as a sentence for people
    /// False for a service that is recorded but not configured.
    bool has_id = true;
};

/// For people: why a service was not changed, such as "cups (3) is already off". Not for
/// Outcome::done.
std::string sentence_of(const Outcome& outcome);

/// One call, from the lock to the verified result. Make one object per call.
///
/// The memory of what was switched off is the record, a file beside the configuration. It wins over
/// the configuration, which every listing rewrites and which people edit and deploy. Before each
/// listing the configuration is made to say what the record says; the listing then shows which of
/// that is still true. What a command is about to do is recorded and flushed before it runs, and
/// success is reported when a second listing shows it. Entries of one name are one service.
///
/// Usable on any thread of a process whose working directory holds the configuration; one object
/// belongs to one thread. Objects exclude one another, in other processes too, through the lock.
/// `say` must not throw.
///
/// Every operation throws std::runtime_error or CLiteXmlException if it is refused: the
/// configuration or the record cannot be read or written, or the machine cannot be listed. No
/// command has run then. An exception of `call` in the first listing passes through, too, and
/// std::bad_alloc may come at any time. The next call goes on from what is on the disk.
class Transaction
{
public:
    /// Waits for the lock, and reads the configuration and the record. Throws as the operations do.
    Transaction(const std::string& configuration, Call call, const Say& say,
                const Waiting& waiting = Waiting());
    ~Transaction();

    /// The configured services as they were read last, in the order of the file. Valid until the
    /// next operation, as is the record.
    const std::vector<Entry>& entries() const;
    /// The record: what was switched off or ignored.
    const Lines& record() const;

    /// Lists the machine. Returns the services to show, in the order of the file: those that are on
    /// or ignored, and those that are switched off.
    std::vector<Service> list();

    /// Switches services off, or back on. Returns one outcome for each entry of the requested
    /// names, in the order of the request.
    std::vector<Outcome> switch_services(const Ids& ids, bool on);

    /// Marks services as ignored, or removes the mark.
    std::vector<Outcome> ignore(const Ids& ids, bool flag);

    /// Makes the following operations return what they would do: they stop before they ask the
    /// module to change anything. They still list and write both files, so use a copy of these.
    void rehearse();

private:
    class Work;

    std::unique_ptr<Work> m_work;
};

} // namespace transaction
