// Carries calls that write to their end, so that no run level is lost, and shares the configuration
// with optimize_host: its lock and its journal.
#pragma once

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

/// Holds the lock on the configuration in the working directory. Signals stay ignored afterwards.
class Transaction
{
public:
    /// Waits for the lock. Throws std::runtime_error if there is none, or if an interrupted call
    /// has to be completed first.
    Transaction()
    {
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
            std::signal(signal, SIG_IGN); // commands inherit this
        }
        if (m_file.descriptor < 0 || flock(m_file.descriptor, LOCK_EX) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        struct stat status = {};
        if (fstat(m_file.descriptor, &status) != 0 || status.st_size != 0) {
            throw std::runtime_error("an interrupted call is not complete: run optimize_host "
                                     "ls_service first");
        }
    }

    /// Call before services are switched: optimize_host completes the call if this process is
    /// killed. Throws std::system_error.
    void write_journal(const std::string& operation, unsigned int id)
    {
        const std::string text = operation + " " + std::to_string(id) + "\nend\n";
        if (pwrite(m_file.descriptor, text.data(), text.size(), 0) !=
                static_cast<ssize_t>(text.size()) ||
            fdatasync(m_file.descriptor) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

    /// Call after the final reply of a successful operation.
    void clear_journal()
    {
        if (ftruncate(m_file.descriptor, 0) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

private:
    static constexpr const char* path = "config/system_operation/conf.xml.lock";

    struct File {
        // The commands of the module inherit it, so the lock lasts until the last of them ends.
        int descriptor = open(path, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
        ~File() { close(descriptor); }
    } m_file;
};
