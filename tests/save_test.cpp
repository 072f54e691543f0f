// Saving a file: what it keeps, what stops it, and what others may do in the middle of it.
#include "fwbase/atomic_file.h"
#include "tests/workspace.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

namespace fs = std::filesystem;
using std::string;
using Text = const char*;
using Action = std::function<int()>;

static bool no_unnamed_files; // as on some file systems
static string watched;        // the system call before whose next run ...
static Action action;         // ... this runs; it returns the call's error, or 0

static bool fails(const string& call)
{
    const bool failed = call == watched && (watched.clear(), errno = action()) != 0;
    return failed || (call == "access" && no_unnamed_files);
}

// The library calls these instead of the ones of the C library.
#define INTERCEPT(name, parameters, ...)                                                           \
    extern "C" int name parameters                                                                 \
    {                                                                                              \
        return fails(#name) ? -1 : int(syscall(__VA_ARGS__));                                      \
    }
INTERCEPT(access, (Text a, int b), SYS_faccessat, AT_FDCWD, a, b)
INTERCEPT(faccessat, (int a, Text b, int c, int), SYS_faccessat, a, b, c)
INTERCEPT(fchown, (int a, uid_t b, gid_t c), SYS_fchown, a, b, c)
INTERCEPT(fsetxattr, (int a, Text b, const void* c, size_t d, int e), SYS_fsetxattr, a, b, c, d, e)
INTERCEPT(fsync, (int a), SYS_fsync, a)
INTERCEPT(renameat, (int a, Text b, int c, Text d), SYS_renameat2, a, b, c, d, 0)

constexpr Text access_list = "system.posix_acl_access";
/// Sets an attribute, to the list "user::rw- user:0:r-- group::--- mask::r-- other::---".
static bool set(Text path, Text name)
{
    constexpr char list[] = "\2\0\0\0\1\0\6\0\xFF\xFF\xFF\xFF\2\0\4\0\0\0\0\0\4\0\0\0"
                            "\xFF\xFF\xFF\xFF\20\0\4\0\xFF\xFF\xFF\xFF\40\0\0\0\xFF\xFF\xFF\xFF";
    return setxattr(path, name, list, sizeof(list) - 1, 0) == 0;
}

/// Runs with and without unnamed files.
struct SaveTest : Workspace, testing::WithParamInterface<bool> {
    SaveTest() { write("victim", "keep"), no_unnamed_files = GetParam(); }
    ~SaveTest() override { no_unnamed_files = false; }

    fwbase::AtomicFile file;
};
INSTANTIATE_TEST_SUITE_P(NoUnnamedFiles, SaveTest, testing::Bool());

TEST_P(SaveTest, FailsWithTheReasonAndLeavesNothing)
{
    const auto error = [](int code) { return [code] { return code; }; };
    const auto swap = [](const string& path) {
        return [path] { return unlink(path.c_str()) + symlink("../victim", path.c_str()); };
    };
    const auto save_other = [] {
        fwbase::AtomicFile other;
        other.load("bin/conf");
        return other.save("bin/conf", "other"), 0;
    };
    const Text changed = "changed meanwhile";
    const std::tuple<Text, Action, Text> table[] = {
        {"", save_other, changed},
        {"", [] { return unlink("bin/conf"); }, changed},
        {"", swap("bin/conf"), changed},
        {"fsync", swap("bin/conf"), changed},
        {"renameat", swap(GetParam() ? "bin/.conf.part" : "bin/.conf.tmp"), changed},
        {"renameat", save_other, changed},
        {"", [] { return mkdir("bin/.conf.tmp", 0700); }, "cannot "},
        {"faccessat", error(EROFS), "the file is not writable"},
        {"fchown", error(EPERM), "cannot keep the owner"},
        {"fsetxattr", error(EPERM), "cannot keep the access list"},
        {"fsync", error(EIO), "cannot write"},
        {"renameat", error(EBUSY), "a mount is in the way"}};
    for (const auto& [call, before, reason] : table) {
        fs::remove_all("bin");
        fs::create_directory("bin");
        write("bin/conf", "old");
        if (!set("bin/conf", access_list) && call == string("fsetxattr")) {
            continue;
        }
        file.load("bin/conf");
        watched = call;
        action = before;
        fails(""); // runs what is to happen before the save
        try {
            file.save("bin/conf", "new");
            ADD_FAILURE() << reason << " after " << call;
        } catch (const std::exception& failure) {
            EXPECT_THAT(failure.what(), testing::StartsWith(string("bin/conf: ") + reason)) << call;
        }
        EXPECT_EQ(read("victim"), "keep") << call << ": " << reason;
        for (const auto& left : fs::directory_iterator("bin")) {
            EXPECT_NE(read(left.path()), "new") << left << " after " << call << ": " << reason;
        }
    }
}

TEST_P(SaveTest, KeepsAllButTheContent)
{
    write("bin/conf", "old");
    write("bin/other", "other");
    ASSERT_EQ(chmod("bin/conf", 0640) + symlink("bin/conf", "link"), 0);
    ASSERT_EQ(geteuid() == 0 ? chown("bin/conf", 1, 2) : 0, 0);
    set("bin", "system.posix_acl_default"); // must not reach the file
    for (const Text attribute : {"", access_list, "user.note"}) {
        set("bin/conf", attribute);
        struct stat old = {};
        struct stat now = {};
        ASSERT_EQ(stat("bin/conf", &old), 0);
        const auto size = [](Text name) { return getxattr("bin/conf", name, nullptr, 0); };
        const ssize_t sizes[] = {size(access_list), size("user.note")};
        file.load("link");
        for (const Text bytes : {"once", "twice"}) {
            // Left by a save that was killed; its other names must not be written to.
            ASSERT_EQ(link("victim", "bin/.conf.tmp"), 0);
            ASSERT_EQ(GetParam() ? symlink("../victim", "bin/.conf.part") : 0, 0);
            file.save("bin/other", bytes); // was not loaded
            file.save("link", bytes);
            EXPECT_EQ(read("link"), bytes) << attribute;
        }
        ASSERT_EQ(stat("bin/conf", &now), 0);
        EXPECT_THAT((std::array{now.st_mode, now.st_uid, now.st_gid}),
                    testing::ElementsAre(old.st_mode, old.st_uid, old.st_gid))
            << attribute;
        EXPECT_THAT((std::array{size(access_list), size("user.note")}),
                    testing::ElementsAreArray(sizes))
            << attribute;
        EXPECT_EQ(std::distance(fs::directory_iterator("bin"), {}), 2) << attribute;
    }
    EXPECT_EQ(read("victim"), "keep");
}
