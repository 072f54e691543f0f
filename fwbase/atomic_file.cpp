#include "fwbase/atomic_file.h"

#include "framework/xml.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace fwbase
{

namespace
{

[[noreturn]] void fail_changed(const char* path)
{
    throw CLiteXmlException(path, 0, "changed meanwhile");
}

/// Throws if a system call, given by its result, has failed.
void check(const char* path, ssize_t result, const char* failure, const std::string& name = {})
{
    if (result == -1) {
        const std::string reason = std::generic_category().message(errno);
        throw CLiteXmlException(path, 0, failure + name + ": " + reason);
    }
}

/// Repeats a system call while signals interrupt it.
template <class Call>
auto retry(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

int open_at(int folder, const char* name, int flags, mode_t mode = 0)
{
    return retry([&] { return ::openat(folder, name, flags | O_CLOEXEC, mode); });
}

void require_size(const char* path, std::size_t size)
{
    if (size > max_file_size) {
        throw CLiteXmlException(path, 0, "larger than 16 MiB");
    }
}

struct stat regular_status(const char* path, int file)
{
    struct stat status = {};
    check(path, ::fstat(file, &status), "cannot read");
    if (!S_ISREG(status.st_mode)) {
        throw CLiteXmlException(path, 0, "not a regular file");
    }
    return status;
}

bool same_state(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

/// Follows symbolic links; returns the path itself if no file is there yet.
std::string real_path(const char* path)
{
    char real[PATH_MAX] = {};
    const bool found = ::realpath(path, real) != nullptr;
    check(path, found || errno == ENOENT ? 0 : -1, "cannot find the file");
    return found ? real : path;
}

/// Opens the file to be replaced; returns none if there is no such file. It is not opened for
/// writing: an overlay file system would copy it, which looks like a change.
Descriptor open_old(const char* path, int folder, const char* name)
{
    Descriptor old(open_at(folder, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY));
    if (old.is_open() || errno != ENOENT) {
        check(path, old.get(), "cannot open the old file");
        regular_status(path, old.get());
        check(path, ::faccessat(folder, name, W_OK, AT_EACCESS), "the file is not writable");
    }
    return old;
}

/// The new file of a save. It has no name until it is complete. Then it is linked to a temporary
/// name, which is the same for all saves so that at most one such file is ever left over, and
/// renamed. Where the file system has no unnamed files, the incomplete file has a name of its own,
/// so that no save takes another's incomplete file for a complete one.
class NewFile
{
public:
    /// Borrows the path and the folder.
    NewFile(const char* path, int folder, const std::string& name, mode_t mode)
        : m_path(path), m_folder(folder), m_name(name), m_temporary("." + name + ".tmp"),
          m_part("." + name + ".part"), m_file(open_at(folder, ".", O_WRONLY | O_TMPFILE, mode)),
          m_link("/proc/self/fd/" + std::to_string(m_file.get()))
    {
        if (m_file.is_open() && ::access(m_link.c_str(), F_OK) == 0) { // the link needs /proc
            return;
        }
        ::unlinkat(folder, m_temporary.c_str(), 0); // so that not both names are ever left over
        m_file = Descriptor(take_name(m_part, [&] {
            return open_at(folder, m_part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        }));
        const bool denied = errno == EACCES || errno == EPERM || errno == EROFS;
        check(path, m_file.get(), denied ? "the folder is not writable" : "cannot create a file");
        m_present = &m_part;
    }
    ~NewFile()
    {
        if (m_present != nullptr && is_at(*m_present)) {
            ::unlinkat(m_folder, m_present->c_str(), 0);
        }
    }

    /// Writes the bytes and takes over everything else from the old file, if there is one. The mode
    /// comes last: it would open the file to those whom the access list excludes, and the other
    /// changes may alter it.
    void complete(std::string_view bytes, const Descriptor& old)
    {
        const int file = m_file.get();
        check(m_path, write_all(file, bytes.data(), bytes.size()) ? 0 : -1, "cannot write");
        if (old.is_open()) {
            const struct stat status = regular_status(m_path, old.get());
            check(m_path, ::fchown(file, status.st_uid, status.st_gid), "cannot keep the owner");
            take_attributes(old.get(), file);
            check(m_path, ::fchmod(file, status.st_mode & ALLPERMS), "cannot keep the mode");
        }
        check(m_path, retry([&] { return ::fsync(file); }), "cannot write");
    }

    /// Puts the complete file in the place of the old one, and returns it. At any moment another
    /// save may give the temporary name to its own file, even to one that is incomplete, or rename
    /// this one. What counts is which file is at the path in the end.
    Descriptor replace()
    {
        const char* const tmp = m_temporary.c_str();
        int result = 0;
        if (m_present == nullptr) {
            result = take_name(m_temporary, [&] {
                return ::linkat(AT_FDCWD, m_link.c_str(), m_folder, tmp, AT_SYMLINK_FOLLOW);
            });
        } else if (is_at(m_part)) {
            result = ::renameat(m_folder, m_part.c_str(), m_folder, tmp);
        }
        if (result != -1) {
            m_present = &m_temporary;
            result = is_at(m_temporary) ? ::renameat(m_folder, tmp, m_folder, m_name.c_str()) : 0;
        }
        const int error = result == -1 ? errno : ENOENT;
        if (!is_at(m_name)) {
            errno = error;
            const bool mount = error == EBUSY || error == EXDEV;
            check(m_path, error == ENOENT ? 0 : -1,
                  mount ? "a mount is in the way" : "cannot replace the file");
            fail_changed(m_path);
        }
        m_present = nullptr;
        return std::move(m_file);
    }

private:
    /// Makes a call that creates a file of that name. What has the name already was left over by a
    /// save that was killed, or belongs to one that is running, which fails then.
    template <class Call>
    int take_name(const std::string& name, Call call)
    {
        int result = call();
        for (int attempts = 10; result == -1 && errno == EEXIST && attempts > 0; --attempts) {
            const int removed = ::unlinkat(m_folder, name.c_str(), 0);
            check(m_path, removed == -1 && errno == ENOENT ? 0 : removed, "cannot remove ", name);
            result = call();
        }
        return result;
    }

    bool is_at(const std::string& name) const
    {
        struct stat named = {};
        struct stat opened = {};
        return ::fstatat(m_folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
               ::fstat(m_file.get(), &opened) == 0 && named.st_dev == opened.st_dev &&
               named.st_ino == opened.st_ino;
    }

    void take_attributes(int old, int file) const
    {
        const auto absent = [] { return errno == EOPNOTSUPP || errno == ENODATA; };
        // A default list of the folder has given the file one, which the mode would put in force.
        ssize_t result = ::fremovexattr(file, "system.posix_acl_access");
        check(m_path, result == -1 && absent() ? 0 : result, "cannot keep the access list");
        const ssize_t wanted = ::flistxattr(old, nullptr, 0);
        const bool none = wanted == 0 || (wanted == -1 && absent());
        std::vector<char> names(none ? 0 : XATTR_LIST_MAX); // clearing them takes time
        std::vector<char> value(none ? 0 : XATTR_SIZE_MAX);
        result = none ? 0 : ::flistxattr(old, names.data(), names.size());
        check(m_path, result, "cannot read the attributes");
        for (const char *at = names.data(), *end = at + result; at < end;) {
            const std::string name = at;
            at += name.size() + 1;
            if (name == "security.ima" || name == "security.evm") {
                continue;
            }
            const ssize_t size = ::fgetxattr(old, name.c_str(), value.data(), value.size());
            const auto length = static_cast<std::size_t>(size);
            result = size == -1 ? -1 : ::fsetxattr(file, name.c_str(), value.data(), length, 0);
            if (name.rfind("system.", 0) == 0) { // access lists, of whatever kind
                check(m_path, result, "cannot keep the access list");
            } else if (errno != EPERM && errno != EACCES && !absent()) {
                check(m_path, result, "cannot keep the attribute ", name);
            }
        }
    }

    const char* m_path;
    int m_folder;
    std::string m_name;
    std::string m_temporary;
    std::string m_part;
    Descriptor m_file;
    std::string m_link;                     // a path to the open file
    const std::string* m_present = nullptr; // the name that the file has now, if any
};

} // namespace

std::string AtomicFile::load(const char* path)
{
    m_file = Descriptor();
    Descriptor file(open_at(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    check(path, file.get(), "cannot open");
    m_status = regular_status(path, file.get());
    const auto expected = static_cast<std::size_t>(m_status.st_size);
    require_size(path, expected);
    std::string bytes(expected + 1, '\0'); // one more than expected shows whether the file grows
    std::size_t size = 0;
    for (ssize_t count = 1; count > 0; size += static_cast<std::size_t>(count)) {
        count = retry([&] { return ::read(file.get(), &bytes[size], bytes.size() - size); });
        check(path, count, "cannot read");
    }
    if (size != expected) {
        fail_changed(path);
    }
    bytes.pop_back();
    m_path = path;
    m_file = std::move(file);
    return bytes;
}

void AtomicFile::save(const char* path, std::string_view bytes)
{
    require_size(path, bytes.size());
    const std::string real = real_path(path);
    const std::size_t slash = real.rfind('/') + 1; // 0 without a slash
    const std::string name = real.substr(slash);
    if (name.empty()) {
        throw CLiteXmlException(path, 0, "no file name");
    }
    const std::string parent = slash == 0 ? "." : real.substr(0, slash);
    const Descriptor folder(open_at(AT_FDCWD, parent.c_str(), O_RDONLY | O_DIRECTORY));
    check(path, folder.get(), "cannot open the folder");
    const bool is_loaded = m_file.is_open() && m_path == path;
    const auto require_unchanged = [&] {
        struct stat now = {};
        const int found = ::fstatat(folder.get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW);
        if (is_loaded && (found == -1 || !same_state(now, m_status))) {
            fail_changed(path);
        }
    };
    require_unchanged();
    const Descriptor old = open_old(path, folder.get(), name.c_str());
    NewFile file(path, folder.get(), name, old.is_open() ? 0600 : 0666);
    file.complete(bytes, old);
    require_unchanged(); // again, as late as possible
    Descriptor replaced = file.replace();
    if (is_loaded) {
        m_file = std::move(replaced);
        m_status = regular_status(path, m_file.get());
    }
    const int flushed = retry([&] { return ::fsync(folder.get()); });
    check(path, flushed == -1 && errno == EINVAL ? 0 : flushed, "cannot flush the folder");
}

} // namespace fwbase
