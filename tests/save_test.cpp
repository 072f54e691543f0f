// Saving a file: what it keeps, what stops it, and what others may do in the middle of it.
#include "framework/xml.h"
#include "fwbase/atomic_file.h"
#include "tests/system_calls.h"
#include "tests/workspace.h"

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/xattr.h>

namespace fs = std::filesystem;
using std::string;
using Text = const char*;

static bool no_unnamed_files;       // as on some file systems
static string watched;              // the system call before whose next run ...
static std::function<int()> action; // ... this runs; it returns the call's error, or 0

/// Runs what is to happen before a system call.
static int strike(const string& call)
{
    const int error = call == watched ? (watched.clear(), action()) : 0;
    return error == 0 && no_unnamed_files && call == "access" ? ENOENT : error;
}

/// Sets an attribute, to the list "user::rw- user:0:r-- group::--- mask::r-- other::---".
static bool set(Text path, Text name)
{
    const short list[] = {2, 0, 1, 6, 0, 0, 2, 4, 0, 0, 4, 0, 0, 0, 16, 4, 0, 0, 32, 0, 0, 0};
    return setxattr(path, name, list, sizeof(list), 0) == 0;
}

/// Runs with and without unnamed files.
struct SaveTest : Workspace, testing::WithParamInterface<bool> {
    SaveTest()
    {
        no_unnamed_files = GetParam();
        system_calls::before = strike;
        fs::create_directory("dir");
    }
    ~SaveTest() override
    {
        system_calls::before = nullptr;
        EXPECT_EQ(open_files(), m_open_files) << "files were left open";
    }

private:
    static long open_files() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

    const long m_open_files = open_files();
};
INSTANTIATE_TEST_SUITE_P(NoUnnamedFiles, SaveTest, testing::Bool());

TEST_P(SaveTest, FailsWithTheReasonAndLeavesNothing)
{
    const auto error = [](int code) { return [code] { return code; }; };
    const auto swap = [](Text path) { return [path] { return rename("dir/link", path); }; };
    const auto swap_temporary = [&] {
        return swap(fs::exists("dir/.conf.part") ? "dir/.conf.part" : "dir/.conf.tmp")();
    };
    const auto save_other = [] {
        fwbase::AtomicFile other;
        other.load("dir/conf");
        return other.save("dir/conf", "other"), 0;
    };
    constexpr Text changed = "changed meanwhile";
    const std::tuple<Text, decltype(action), Text> table[] = {
        {"", [] { return fs::last_write_time("dir/conf", {}), 0; }, changed},
        {"", [] { return unlink("dir/conf") + mkdir("dir/conf", 0700); }, changed},
        {"", swap("dir/conf"), changed},
        {"fsync", swap("dir/conf"), changed},
        {"renameat", swap_temporary, changed},
        {"renameat", save_other, changed},
        {"", [] { return mkdir("dir/.conf.tmp", 0700); }, "cannot "},
        {"faccessat", error(EROFS), "the file is not writable"},
        {"fchown", error(EPERM), "cannot keep the owner"},
        {"fsetxattr", error(EPERM), "cannot keep the access list"},
        {"fsync", error(EIO), "cannot write"},
        {"renameat", error(EBUSY), "a mount is in the way"}};
    write("victim", "keep");
    for (const auto& [call, before, reason] : table) {
        fs::remove_all("dir");
        fs::create_directory("dir");
        fs::create_symlink("../victim", "dir/link");
        write("dir/conf", "old");
        if (!set("dir/conf", "system.posix_acl_access") && call == string("fsetxattr")) {
            continue;
        }
        fwbase::AtomicFile file;
        file.load("dir/conf");
        watched = call;
        action = before;
        strike(""); // runs what is to happen before the save
        const auto message = testing::StartsWith(string("dir/conf: ") + reason);
        EXPECT_THAT([&] { file.save("dir/conf", "new"); },
                    testing::ThrowsMessage<CLiteXmlException>(message))
            << call;
        EXPECT_EQ(read("victim"), "keep") << call << ": " << reason;
        for (const auto& left : fs::directory_iterator("dir")) {
            EXPECT_NE(read(left.path()), "new") << left << " after " << call << ": " << reason;
        }
    }
}

TEST_P(SaveTest, KeepsAllButTheContent)
{
    write("victim", "keep");
    write("dir/conf", "old");
    fs::create_symlink("dir/conf", "link");
    ASSERT_EQ(chmod("dir/conf", 0640) + (geteuid() == 0 ? chown("dir/conf", 1, 2) : 0), 0);
    set("dir", "system.posix_acl_default"); // must not reach the file
    const auto state = [](Text path) {
        struct stat status = {};
        EXPECT_EQ(stat(path, &status), 0) << path;
        const auto size = [path](Text name) { return getxattr(path, name, nullptr, 0); };
        return std::vector<ssize_t>{status.st_mode & 07777, status.st_uid, status.st_gid,
                                    size("system.posix_acl_access"), size("user.note")};
    };
    for (const Text attribute : {"no", "user.note", "system.posix_acl_access"}) {
        set("dir/conf", attribute);
        const auto old = state("dir/conf");
        fwbase::AtomicFile file;
        file.load("link");
        for (const Text bytes : {"once", "twice"}) {
            // Left by a save that was killed; the victim must not be written to.
            fs::create_hard_link("victim", "dir/.conf.tmp");
            ASSERT_EQ(GetParam() ? symlink("../victim", "dir/.conf.part") : 0, 0);
            file.save("dir/other", bytes); // was not loaded
            watched = attribute[0] == 's' ? "fsetxattr" : "fchown";
            action = [&] { return GetParam() && state("dir/.conf.part")[0] != 0600 ? EPERM : 0; };
            string calls;
            system_calls::trace = &calls;
            file.save("link", bytes);
            system_calls::trace = nullptr;
            EXPECT_THAT(calls, testing::MatchesRegex("fsync .*/dir/[^;]*; (renameat .conf.tmp; )?"
                                                     "renameat conf; fsync .*/dir; "));
            EXPECT_EQ(read("link"), bytes) << attribute;
            EXPECT_EQ(state("dir/conf"), old) << attribute;
            EXPECT_EQ(std::distance(fs::directory_iterator("dir"), {}), 2) << attribute;
        }
    }
    EXPECT_EQ(read("victim"), "keep");
}
