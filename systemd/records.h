// The records of links: for each unit, the links that were removed or are being changed.
//
// Each record is a file in /var/lib/optimize_option/links with one link a line: the path of the
// link, a blank, its target. The record of a unit that is off has the name of the unit. While the
// links of a unit are changed, its record has ".pending" behind the name: if the change is
// interrupted, the links in this record are to be put back.
#pragma once

#include "framework/descriptor.h"
#include "systemd/tree.h"

#include <filesystem>
#include <map>
#include <string>

namespace systemd
{

/// The units that have a record, and whether it is pending. Takes no lock. Throws
/// std::filesystem::filesystem_error if the folder is there and cannot be read.
std::map<std::string, bool> recorded_units(const std::filesystem::path& root);

/// The name of the pending record of a unit.
std::string pending(const std::string& unit);

/// Throws std::runtime_error with the subject and the reason in errno.
[[noreturn]] void fail(const std::string& subject);

/// Flushes the names in a folder to the disk. Throws std::runtime_error.
void flush_folder(const std::filesystem::path& folder);

/// The records of a machine, locked against other programs. All functions throw std::exception.
class Records
{
public:
    /// Makes the folder if it is missing, and waits for the lock.
    explicit Records(const std::filesystem::path& root);

    /// Whether there is a record of that name.
    bool has(const std::string& name) const;
    /// The links in a record. Throws if the record is missing or damaged.
    Links read(const std::string& name) const;
    /// Writes a record and flushes it and its name.
    void write(const std::string& name, const Links& links) const;
    void rename(const std::string& from, const std::string& to) const;
    void remove(const std::string& name) const;

private:
    std::filesystem::path m_folder;
    fwbase::Descriptor m_lock;
};

} // namespace systemd
