#include "transaction/private_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace transaction
{

namespace
{

std::string name_of(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

void require_private(const std::string& path, int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        fail(path);
    }
    const char* const reason = !S_ISREG(status.st_mode)     ? "is not a regular file"
                               : status.st_uid != geteuid() ? "belongs to another user"
                               : status.st_nlink > 1        ? "has another name"
                                                            : nullptr;
    if (reason != nullptr) {
        throw std::runtime_error(path + ": " + reason);
    }
}

} // namespace

void fail(const std::string& subject)
{
    throw std::runtime_error(subject + ": " + std::strerror(errno));
}

PrivateFile::PrivateFile(int folder, const std::string& path, int flags)
    : m_path(path), m_file(openat(folder, name_of(path).c_str(),
                                  flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR))
{
    if (m_file.is_open()) {
        require_private(path, m_file.get());
    } else if (errno == ELOOP) {
        throw std::runtime_error(path + ": is a link, which is not followed");
    } else if (errno != ENOENT && errno != EEXIST) {
        fail(path + ": cannot open");
    }
}

std::string PrivateFile::read(std::size_t most) const
{
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(m_file.get(), buffer, sizeof buffer);
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            fail(m_path + ": cannot read");
        }
        if (text.size() > most) {
            throw std::runtime_error(m_path + ": too large");
        }
    }
}

void replace_file(int folder, const std::string& path, const std::string& text)
{
    const std::string name = name_of(path);
    const std::string temporary = "." + name + ".tmp";
    unlinkat(folder, temporary.c_str(), 0);
    const fwbase::Descriptor file(openat(folder, temporary.c_str(),
                                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                         S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH));
    const bool done = file.is_open() && fwbase::write_all(file.get(), text.data(), text.size()) &&
                      fsync(file.get()) == 0 &&
                      renameat(folder, temporary.c_str(), folder, name.c_str()) == 0 &&
                      flush_folder(folder);
    if (!done) {
        const int reason = errno;
        unlinkat(folder, temporary.c_str(), 0);
        errno = reason;
        fail(path + ": cannot write");
    }
}

bool flush_folder(int folder)
{
    return fsync(folder) == 0 || errno == EINVAL;
}

} // namespace transaction
