#include "fwbase/atomic_file.h"

#include "framework/xml.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fwbase
{

namespace
{

/// Owns a file descriptor; -1 is none.
class Descriptor
{
public:
    explicit Descriptor(int fd) noexcept : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    int get() const noexcept { return m_fd; }

private:
    int m_fd;
};

/// Repeats a system call for as long as signals interrupt it.
template <class Call>
auto retry(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Throws when a system call, given by its result, has failed.
void check(const char* path, ssize_t result, const char* failure)
{
    if (result == -1) {
        throw CLiteXmlException(
            path, 0, std::string(failure) + ": " + std::generic_category().message(errno));
    }
}

void require_path(const char* path)
{
    if (path == nullptr || *path == '\0') {
        throw CLiteXmlException({}, 0, "no file name");
    }
}

void require_regular(const char* path, const struct stat& status, const char* failure)
{
    if (!S_ISREG(status.st_mode)) {
        throw CLiteXmlException(path, 0, failure);
    }
}

void require_size(const char* path, std::size_t size)
{
    if (size > max_file_size) {
        throw CLiteXmlException(path, 0, "larger than 16 MiB");
    }
}

struct Place {
    std::string folder; // ends in a slash
    std::string name;
};

/// Where the file is, or would be made, that the path leads to.
Place find_place(const char* path)
{
    std::string real = path;
    struct stat status = {};
    if (::lstat(path, &status) == 0) {
        const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path, nullptr), std::free);
        check(path, resolved ? 0 : -1, "cannot follow the link");
        real = resolved.get();
    } else if (errno != ENOENT) {
        check(path, -1, "cannot look for the file");
    }
    const std::size_t name = real.rfind('/') + 1; // 0 without a slash
    if (name == real.size()) {
        throw CLiteXmlException(path, 0, "no file name");
    }
    return {name == 0 ? "./" : real.substr(0, name), real.substr(name)};
}

/// The state of the file to be replaced, if there is one.
std::optional<struct stat> find_old(const char* path, int folder, const std::string& name)
{
    struct stat status = {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == -1) {
        check(path, errno == ENOENT ? 0 : -1, "cannot look for the file");
        return std::nullopt;
    }
    require_regular(path, status, "not a regular file");
    check(path, ::faccessat(folder, name.c_str(), W_OK, AT_EACCESS), "not writable");
    return status;
}

bool leads_to(int folder, const std::string& name, int file)
{
    struct stat named = {};
    struct stat opened = {};
    return ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(file, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

/// Makes the temporary file and locks it, when every other save with the same one is over.
Descriptor make_temporary(const char* path, int folder, const std::string& name, mode_t mode)
{
    constexpr const char* failure = "cannot make the temporary file";
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    for (;;) {
        Descriptor file(
            retry([&] { return ::openat(folder, name.c_str(), flags | O_CREAT | O_EXCL, mode); }));
        if (file.get() >= 0) {
            const int locked = retry([&] { return ::flock(file.get(), LOCK_EX); });
            if (locked == -1) {
                const int error = errno;
                ::unlinkat(folder, name.c_str(), 0);
                errno = error;
            }
            check(path, locked, failure);
            if (leads_to(folder, name, file.get())) {
                return file;
            }
            continue; // another save took it for a leftover before it was locked
        }
        check(path, errno == EEXIST ? 0 : -1, failure);

        const Descriptor other(retry([&] { return ::openat(folder, name.c_str(), flags); }));
        if (other.get() == -1 && errno == ENOENT) {
            continue;
        }
        check(path, other.get(), failure);
        struct stat status = {};
        check(path, ::fstat(other.get(), &status), failure);
        require_regular(path, status, "the temporary file's name is taken");
        check(path, retry([&] { return ::flock(other.get(), LOCK_EX); }), failure);
        // With the lock in hand and the name in place, no save is using it. It is not written to:
        // its owner and mode may be wrong, and it may be linked elsewhere.
        if (leads_to(folder, name, other.get())) {
            check(path, ::unlinkat(folder, name.c_str(), 0), failure);
        }
    }
}

/// The temporary file of a save, beside the file that it is to replace. Removed by the destructor
/// while it is still locked, unless it has replaced that file.
class Temporary
{
public:
    /// Borrows the path and the folder's descriptor.
    Temporary(const char* path, int folder, const std::string& name, mode_t mode)
        : m_path(path), m_folder(folder), m_name(name), m_temporary_name("." + name + ".tmp"),
          m_file(make_temporary(path, folder, m_temporary_name, mode))
    {
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary()
    {
        if (!m_done) {
            ::unlinkat(m_folder, m_temporary_name.c_str(), 0);
        }
    }

    void write(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const ssize_t written =
                retry([&] { return ::write(m_file.get(), bytes.data(), bytes.size()); });
            check(m_path, written, "cannot write");
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void take_owner_and_mode(const struct stat& old)
    {
        struct stat status = {};
        check(m_path, ::fstat(m_file.get(), &status), "cannot read the owner");
        if (status.st_uid != old.st_uid || status.st_gid != old.st_gid) {
            check(m_path, ::fchown(m_file.get(), old.st_uid, old.st_gid), "cannot keep the owner");
        }
        check(m_path, ::fchmod(m_file.get(), old.st_mode & ALLPERMS), "cannot keep the mode");
    }

    void replace()
    {
        check(m_path, retry([&] { return ::fsync(m_file.get()); }), "cannot write");
        check(m_path, ::renameat(m_folder, m_temporary_name.c_str(), m_folder, m_name.c_str()),
              "cannot replace the file");
        m_done = true;
    }

private:
    const char* const m_path;
    const int m_folder;
    const std::string m_name;
    const std::string m_temporary_name;
    const Descriptor m_file;
    bool m_done = false;
};

} // namespace

std::string read_file(const char* path)
{
    require_path(path);
    const Descriptor file(
        retry([&] { return ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); }));
    check(path, file.get(), "cannot open");
    struct stat status = {};
    check(path, ::fstat(file.get(), &status), "cannot read");
    require_regular(path, status, "not a regular file");
    require_size(path, static_cast<std::size_t>(status.st_size));

    std::string bytes;
    std::size_t size = 0;
    ssize_t count = 0;
    do {
        // One byte more than the file has shows its end; a file that grows meanwhile gets more
        // room.
        bytes.resize(std::max(static_cast<std::size_t>(status.st_size), 2 * size) + 1);
        count = retry([&] { return ::read(file.get(), bytes.data() + size, bytes.size() - size); });
        check(path, count, "cannot read");
        size += static_cast<std::size_t>(count);
        require_size(path, size);
    } while (count > 0);
    bytes.resize(size);
    return bytes;
}

void replace_file(const char* path, std::string_view bytes)
{
    require_path(path);
    require_size(path, bytes.size());
    const Place place = find_place(path);
    const Descriptor folder(::open(place.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    check(path, folder.get(), "cannot open the folder");
    const std::optional<struct stat> old = find_old(path, folder.get(), place.name);

    Temporary temporary(path, folder.get(), place.name, old ? 0600 : 0666);
    temporary.write(bytes);
    if (old) {
        temporary.take_owner_and_mode(*old);
    }
    temporary.replace();
    const int flushed = retry([&] { return ::fsync(folder.get()); });
    check(path, flushed == -1 && errno == EINVAL ? 0 : flushed, "cannot flush the folder");
}

} // namespace fwbase
