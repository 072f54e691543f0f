// Carries calls that write to their end, so that no run level is lost, and shares the configuration
// with optimize_host: its lock and its journal.
#pragma once

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
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
    /// Waits for the lock. Throws std::runtime_error if it cannot be taken, if an interrupted call
    /// has to be completed first, or if there is no chkconfig.
    Transaction()
    {
        require(m_file.descriptor >= 0 && flock(m_file.descriptor, LOCK_EX) == 0, "cannot lock");
        struct stat status = {};
        require(fstat(m_file.descriptor, &status) == 0, "cannot lock");
        if (status.st_nlink != 1 || status.st_uid != geteuid()) {
            throw std::runtime_error("the lock file was replaced, or it is not this user's");
        }
        if (status.st_size != 0) {
            throw std::runtime_error("an interrupted call is not complete: run optimize_host "
                                     "ls_service first");
        }
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
            std::signal(signal, SIG_IGN); // commands inherit this
        }
        std::signal(SIGCHLD, SIG_DFL);
        // A listing without chkconfig would lose run levels, and the module would not notice.
        if (std::system("command -v chkconfig >/dev/null") != 0) {
            throw std::runtime_error("no chkconfig on the search path");
        }
    }

    /// Call this before services are switched: optimize_host completes the call if this process is
    /// killed. Throws std::system_error.
    void write_journal(const std::string& operation, unsigned int id)
    {
        const std::string text = operation + " " + std::to_string(id) + "\nend\n";
        const auto size = static_cast<ssize_t>(text.size());
        require(pwrite(m_file.descriptor, text.data(), text.size(), 0) == size &&
                    fdatasync(m_file.descriptor) == 0,
                "cannot write the journal of");
    }

    /// Call this after the final reply of a successful operation. Throws std::system_error.
    void clear_journal()
    {
        require(ftruncate(m_file.descriptor, 0) == 0, "cannot clear the journal of");
    }

private:
    static constexpr const char* configuration = "config/system_operation/conf.xml";

    struct File {
        // Beside the file itself if the configuration is a link. The commands of the module inherit
        // the descriptor, so the lock lasts until the last of them ends; scripts use low numbers.
        File()
        {
            char path[PATH_MAX];
            if (realpath(configuration, path) != nullptr) {
                const std::string name = path + std::string(".lock");
                const int low = open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
                if (low >= 0) {
                    descriptor = fcntl(low, F_DUPFD, 100);
                    close(low);
                }
            }
        }
        ~File() { close(descriptor); }
        File(const File&) = delete;
        File& operator=(const File&) = delete;
        int descriptor = -1;
    };

    static void require(bool succeeded, const char* failure)
    {
        if (!succeeded) {
            throw std::system_error(errno, std::generic_category(),
                                    std::string(failure) + " " + configuration);
        }
    }

    File m_file;
};
