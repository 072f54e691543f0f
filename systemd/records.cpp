#include "systemd/records.h"

#include "systemd/unit_name.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace systemd
{

namespace
{

constexpr const char* records_folder = "var/lib/optimize_option/links";

/// Makes a folder unless it is there, and flushes its name to the disk. On the first use it flushes
/// the name of an existing folder, too: the call that made the folder may have been killed before
/// it could.
void make_folder(const fs::path& folder, bool is_first_use)
{
    const bool is_made = mkdirat(AT_FDCWD, folder.c_str(), 0755) == 0;
    if (!is_made && errno != EEXIST) {
        fail(folder.string() + ": cannot make");
    }
    if (is_made || is_first_use) {
        flush_folder(folder.parent_path());
    }
}

bool is_word(const std::string& text)
{
    return text.find_first_of(" \t\r\n") == std::string::npos;
}

/// Whether a link of that path may be made or removed: it is "NAME" or "FOLDER/NAME", where the
/// name is that of a unit and the folder is one whose links enable units.
bool is_path(const std::string& path)
{
    const std::string name = base_name(path);
    const std::string folder = path.substr(0, path.size() - name.size());
    return is_word(path) && has_suffix(name) &&
           (folder.empty() || (folder.find('/') == folder.size() - 1 &&
                               is_for_links(folder.substr(0, folder.size() - 1))));
}

/// Writes a new file and flushes it. Returns false, with the reason in errno, if that failed.
bool write_file(const fs::path& path, const std::string& text)
{
    const fwbase::Descriptor file(open(path.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH));
    return file.is_open() && fwbase::write_all(file.get(), text.data(), text.size()) &&
           fsync(file.get()) == 0;
}

} // namespace

std::map<std::string, bool> recorded_units(const fs::path& root)
{
    std::map<std::string, bool> units;
    std::error_code error;
    fs::directory_iterator entries(root / records_folder, error);
    if (error && error != std::errc::no_such_file_or_directory) {
        throw fs::filesystem_error("cannot read", root / records_folder, error);
    }
    for (const fs::directory_entry& entry : entries) {
        const std::string name = entry.path().filename();
        const bool is_pending = ends_with(name, pending(""));
        const std::string unit =
            name.substr(0, name.size() - (is_pending ? pending("").size() : 0));
        if (is_unit_name(unit)) {
            units[unit] = units[unit] || is_pending;
        }
    }
    return units;
}

std::string pending(const std::string& unit)
{
    return unit + ".pending";
}

void fail(const std::string& subject)
{
    throw std::runtime_error(subject + ": " + std::strerror(errno));
}

void flush_folder(const fs::path& folder)
{
    const fwbase::Descriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!file.is_open() || fsync(file.get()) != 0) {
        fail(folder.string() + ": cannot flush");
    }
}

Records::Records(const fs::path& root) : m_folder(root / records_folder)
{
    const fs::path path = m_folder / "lock";
    const bool is_first_use = access(path.c_str(), F_OK) != 0;
    make_folder(m_folder.parent_path(), is_first_use);
    make_folder(m_folder, is_first_use);
    m_lock = fwbase::Descriptor(
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    while (!m_lock.is_open() || flock(m_lock.get(), LOCK_EX) != 0) {
        if (!m_lock.is_open() || errno != EINTR) {
            fail(path.string() + ": cannot lock");
        }
    }
}

bool Records::has(const std::string& name) const
{
    return access((m_folder / name).c_str(), F_OK) == 0;
}

Links Records::read(const std::string& name) const
{
    Links links;
    const fs::path path = m_folder / name;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t blank = std::min(line.find(' '), line.size());
        links.push_back({line.substr(0, blank), line.substr(std::min(blank + 1, line.size()))});
        if (!is_path(links.back().path) || links.back().target.empty()) {
            throw std::runtime_error(path.string() + ": is damaged: " + line);
        }
    }
    if (links.empty() || file.bad()) {
        throw std::runtime_error(path.string() + ": cannot be read, or is empty");
    }
    return links;
}

void Records::write(const std::string& name, const Links& links) const
{
    std::string text;
    for (const Link& link : links) {
        if (!is_path(link.path) || link.target.find('\n') != std::string::npos) {
            throw std::runtime_error(link.path + ": this link cannot be recorded");
        }
        text += link.path + ' ' + link.target + '\n';
    }
    const fs::path path = m_folder / name;
    const fs::path temporary = m_folder / ("." + name + ".tmp");
    unlink(temporary.c_str());
    if (!write_file(temporary, text) ||
        renameat(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str()) != 0) {
        const int reason = errno;
        unlink(temporary.c_str());
        errno = reason;
        fail(path.string() + ": cannot write");
    }
    flush_folder(m_folder);
}

void Records::rename(const std::string& from, const std::string& to) const
{
    const fs::path path = m_folder / from;
    if (renameat(AT_FDCWD, path.c_str(), AT_FDCWD, (m_folder / to).c_str()) != 0) {
        fail(path.string() + ": cannot rename");
    }
    flush_folder(m_folder);
}

void Records::remove(const std::string& name) const
{
    const fs::path path = m_folder / name;
    if (unlinkat(AT_FDCWD, path.c_str(), 0) == 0) {
        flush_folder(m_folder);
    } else if (errno != ENOENT) {
        fail(path.string() + ": cannot remove");
    }
}

} // namespace systemd
