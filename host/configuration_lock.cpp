#include "host/configuration_lock.h"

#include "host/configuration.h"
#include "host/standard_streams.h"
#include "host/working_folder.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace host
{

namespace
{

constexpr int lowest_number = 100; // shell scripts use the low descriptors
constexpr mode_t private_mode = S_IRUSR | S_IWUSR;

/// The file of the configuration, without links. Throws ConfigurationError if there is none.
fs::path find_configuration()
{
    std::error_code error;
    fs::path configuration = fs::canonical(configuration_path, error);
    if (error) {
        const std::string missing = missing_configuration();
        throw ConfigurationError(missing.empty() ? configuration_path + (": " + error.message())
                                                 : missing);
    }
    return configuration;
}

/// The lock file is beside the real configuration, so that all links to it lead to the same lock.
std::string lock_path_of(const fs::path& configuration)
{
    return configuration.string() + ".lock";
}

/// Opens the lock file of a configuration, or creates it.
fwbase::Descriptor open_file(const fs::path& configuration)
{
    const std::string path = lock_path_of(configuration);
    const std::string name = lock_path_of(configuration.filename());
    // A link may lead to a file of another program: nothing is created or changed beside it. The
    // path may be replaced meanwhile, but not the folder in which both files are opened.
    const FolderVisit visit(configuration.parent_path());
    try {
        require_configuration(configuration.filename());
    } catch (const CLiteXmlException& error) {
        throw ConfigurationError(configuration.parent_path() / error.what());
    }
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    for (;;) {
        fwbase::Descriptor file(open(name.c_str(), flags));
        if (file.is_open()) {
            return file;
        }
        if (errno == ENOENT) {
            file = fwbase::Descriptor(open(name.c_str(), flags | O_CREAT | O_EXCL, private_mode));
            if (file.is_open()) {
                // For a power failure. A folder that cannot be flushed is no reason to stop.
                fsync(fwbase::Descriptor(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)).get());
                return file;
            }
            if (errno == EEXIST) {
                continue;
            }
        }
        if (errno == ELOOP) {
            throw std::runtime_error(path + ": is a link, which is not followed");
        }
        fail(path + ": cannot open");
    }
}

/// Another user's file could be locked for ever, and one with a second name is somebody's data.
void require_private(const std::string& path, int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        fail(path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path + ": is not a regular file");
    }
    if (status.st_uid != geteuid()) {
        throw std::runtime_error(path + ": belongs to another user");
    }
    if (status.st_nlink > 1) {
        throw std::runtime_error(path + ": has another name");
    }
    if ((status.st_mode & ALLPERMS) != private_mode) {
        // Fails on a file system without modes, where nothing is private.
        static_cast<void>(fchmod(file, private_mode));
    }
}

bool leads_to(const std::string& path, int file)
{
    struct stat named = {};
    struct stat opened = {};
    return lstat(path.c_str(), &named) == 0 && fstat(file, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// Returns false if somebody else has it.
bool try_lock(const std::string& subject, const std::string& path, int file, int flags)
{
    static bool cannot_lock = false;
    if (flock(file, LOCK_EX | flags) == 0 || cannot_lock) {
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
        cannot_lock = true;
        complain(subject + path + ": the file system cannot lock; do not run two calls at once");
        return true;
    default:
        fail(path + ": cannot lock");
    }
}

/// Waits for as long as somebody else has it.
void lock(const std::string& subject, const std::string& path, int file)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    while (!try_lock(subject, path, file, LOCK_NB)) {
        if (Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            continue;
        }
        complain(subject + path + ": waiting for another call to end");
        while (!try_lock(subject, path, file, 0)) {
        }
        return;
    }
}

} // namespace

ConfigurationLock::ConfigurationLock(const std::string& subject)
{
    for (;;) {
        const fs::path configuration = find_configuration();
        m_path = lock_path_of(configuration);
        const fwbase::Descriptor file = open_file(configuration);
        require_private(m_path, file.get());
        lock(subject, m_path, file.get());
        // The lock file, the configuration or a folder may have been replaced in the meantime.
        if (leads_to(lock_path_of(find_configuration()), file.get())) {
            m_file = fwbase::Descriptor(fcntl(file.get(), F_DUPFD, lowest_number)); // is inherited
            if (!m_file.is_open()) {
                fail(m_path + ": cannot keep the lock in descriptor " +
                     std::to_string(lowest_number));
            }
            return;
        }
    }
}

} // namespace host
