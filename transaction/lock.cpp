#include "transaction/lock.h"

#include "framework/owned.h"
#include "framework/xml.h"
#include "transaction/lock_holder.h"
#include "transaction/private_file.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace transaction
{

namespace
{

// The descriptor of the lock gets the first free number from 100 on, because shell scripts use low
// ones. Where the process may not have that many descriptors, it gets the first one from 10 on.
constexpr int lowest_numbers[] = {100, 10};

/// Follows the links of the configuration's path. Throws CLiteXmlException.
fs::path find(const std::string& configuration)
{
    std::error_code error;
    fs::path path = fs::canonical(configuration, error);
    if (error) {
        throw CLiteXmlException(configuration, 0, "cannot open: " + error.message());
    }
    return path;
}

/// Throws CLiteXmlException unless the file is a configuration. Reads it through the open folder:
/// by its path, another file could be read than the one beside which the lock file is created.
void require_configuration(const Place& place)
{
    const std::string name = fs::path(place.path).filename().string();
    const std::string opened = "/proc/self/fd/" + std::to_string(place.folder.get()) + "/" + name;
    const owned<IXmlDocument> document(newXmlDocument());
    try {
        document->load(opened.c_str());
    } catch (const CLiteXmlException& error) {
        std::string reason = error.what();
        if (reason.rfind(opened, 0) == 0) {
            reason.replace(0, opened.size(), place.path);
        }
        throw CLiteXmlException("", 0, reason);
    }
    const owned<IXmlNode> root(document->root());
    if (!owned<IXmlNode>(root->selectSingleNode("/kavra_conf"))) {
        throw CLiteXmlException(place.path, 0,
                                "not a configuration: the root element is not kavra_conf");
    }
}

PrivateFile open_lock_file(const Place& place, const std::string& path, Lock::Create create)
{
    for (;;) {
        PrivateFile file(place.folder.get(), path, O_RDWR);
        if (file || create == Lock::Create::no) {
            return file;
        }
        file = PrivateFile(place.folder.get(), path, O_RDWR | O_CREAT | O_EXCL);
        if (file) {
            flush_folder(place.folder.get()); // a failure does not matter: the lock still works
            return file;
        }
    }
}

bool is_same(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Whether the locked file is still the one at `path`, and the configuration is still in `place`.
bool is_current(const std::string& configuration, const Place& place, const std::string& path,
                int file)
{
    struct stat named = {};
    struct stat opened = {};
    struct stat folder = {};
    struct stat opened_folder = {};
    std::error_code error;
    return fs::canonical(configuration, error) == place.path && lstat(path.c_str(), &named) == 0 &&
           fstat(file, &opened) == 0 && is_same(named, opened) &&
           stat(fs::path(path).parent_path().c_str(), &folder) == 0 &&
           fstat(place.folder.get(), &opened_folder) == 0 && is_same(folder, opened_folder);
}

/// Takes away the rights of other users, who could lock a file that they can open and never give it
/// back. Ignores a failure: on a file system without modes nothing can be private.
void make_private(int file)
{
    constexpr mode_t mode = S_IRUSR | S_IWUSR;
    struct stat status = {};
    if (fstat(file, &status) == 0 && (status.st_mode & ALLPERMS) != mode) {
        static_cast<void>(fchmod(file, mode));
    }
}

/// Locks the file without waiting. Returns false if somebody else holds the lock. Returns true if
/// the file system cannot lock.
bool try_lock(const Say& say, const std::string& path, int file)
{
    static std::atomic<bool> is_told{false};
    if (flock(file, LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    switch (errno) {
    case EWOULDBLOCK:
    case EINTR:
        return false;
    case ENOLCK:
    case EOPNOTSUPP:
    case ENOSYS:
    case EINVAL:
        if (!is_told.exchange(true)) {
            say(path + ": the file system cannot lock; do not run two calls at once");
        }
        return true;
    default:
        fail(path + ": cannot lock");
    }
}

/// The waiting of one call, which may have to lock several files one after the other.
class Waiter
{
public:
    Waiter(const Say& say, const Waiting& waiting) : m_say(say), m_waiting(waiting) {}

    /// Locks the file as soon as nobody else holds the lock. Throws std::runtime_error if that
    /// takes too long.
    void lock(const std::string& path, int file)
    {
        while (!try_lock(m_say, path, file)) {
            const Clock::duration waited = Clock::now() - m_start;
            if (m_waiting.seconds >= 0 && waited >= std::chrono::seconds(m_waiting.seconds)) {
                const std::string seconds = std::to_string(m_waiting.seconds);
                throw std::runtime_error(path + ": another call has not ended" +
                                         (seconds == "0" ? "" : " within " + seconds + " s") +
                                         holder_of(file));
            }
            if (!m_is_told && waited >= std::chrono::seconds(1)) {
                m_say(path + ": waiting for another call to end" + holder_of(file));
                m_is_told = true;
            }
            if (m_waiting.check) {
                m_waiting.check();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(m_is_told ? 50 : 5));
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    const Say& m_say;
    const Waiting& m_waiting;
    const Clock::time_point m_start = Clock::now();
    bool m_is_told = false;
};

} // namespace

Place open_place(const std::string& configuration)
{
    const fs::path path = find(configuration);
    Place place{path.string(), fwbase::Descriptor(open(path.parent_path().c_str(),
                                                       O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
    if (!place.folder.is_open()) {
        fail(path.parent_path().string());
    }
    require_configuration(place);
    return place;
}

Lock::Lock(const std::string& configuration, const Say& say, Create create, const Waiting& waiting)
{
    Waiter waiter(say, waiting);
    for (;;) {
        m_place = open_place(configuration);
        const std::string path = m_place.path + ".lock";
        const PrivateFile file = open_lock_file(m_place, path, create);
        if (!file) {
            return;
        }
        make_private(file.number());
        waiter.lock(path, file.number());
        if (is_current(configuration, m_place, path, file.number())) {
            for (const int lowest : lowest_numbers) {
                if (!m_file.is_open()) { // not closed on exec: commands inherit it
                    m_file = fwbase::Descriptor(fcntl(file.number(), F_DUPFD, lowest));
                }
            }
            if (!m_file.is_open()) {
                fail(path + ": cannot keep the lock");
            }
            return;
        }
    }
}

} // namespace transaction
