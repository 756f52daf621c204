// Runtime directories: whose they are, and that a start which came to nothing leaves nothing.
#include "runtime_directory.h"

#include "scratch.h"
#include "user_database.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Vard::RuntimeDirectory;

/// The process's umask while a test runs.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

struct stat infoOf(const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

class RuntimeDirectoryTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        Scratch::run("useradd -M runtime-user");
    }

    Scratch::Directory dir_;
    fs::path top_ = dir_.path() / "user";
    fs::path path_ = top_ / "deep" / "1000";
};

TEST_F(RuntimeDirectoryTest, CreatesWithParentsWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const Umask umask(mask);
        RuntimeDirectory directory(path_.string() + "/", "runtime-user");
        EXPECT_TRUE(directory.valid());
        const auto own = infoOf(path_);
        EXPECT_EQ(own.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
        EXPECT_EQ(own.st_uid, Vard::Utils::getUserUid("runtime-user"));
        EXPECT_EQ(own.st_gid, Vard::Utils::getUserGid("runtime-user"));
        EXPECT_EQ(infoOf(top_).st_mode, static_cast<mode_t>(S_IFDIR | 0755));
        EXPECT_EQ(infoOf(path_.parent_path()).st_uid, 0U);
    }
}

TEST_F(RuntimeDirectoryTest, RemovesWhatAFailedStartMadeAndNothingElse) {
    fs::create_directory(top_);
    { const RuntimeDirectory directory(path_, "no-such-user"); }
    EXPECT_TRUE(fs::is_empty(top_));
    {
        const RuntimeDirectory directory(path_, "runtime-user");
        fs::create_directory(path_.parent_path() / "1001"); // another session's, meanwhile
    }
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(fs::exists(path_.parent_path() / "1001"));
}

TEST_F(RuntimeDirectoryTest, StaysWhenTheSessionLives) {
    {
        RuntimeDirectory directory(path_, "runtime-user");
        directory.keep();
    }
    EXPECT_TRUE(fs::is_directory(path_));
}

TEST_F(RuntimeDirectoryTest, LeavesAnExistingDirectoryAsItIs) {
    fs::create_directories(path_);
    ASSERT_EQ(::chmod(path_.c_str(), 01775), 0);
    fs::create_directory_symlink(top_, dir_.path() / "linked");
    for (const auto& path : {path_, dir_.path() / "linked" / "deep" / "1000"}) {
        const RuntimeDirectory directory(path, "runtime-user");
        EXPECT_TRUE(directory.valid()) << path;
    }
    EXPECT_EQ(infoOf(path_).st_mode, static_cast<mode_t>(S_IFDIR | 01775));
    EXPECT_EQ(infoOf(path_).st_uid, 0U);
}

TEST_F(RuntimeDirectoryTest, FollowsNoLinkAndTakesNoFile) {
    const Scratch::Journal journal;
    const auto elsewhere = dir_.path() / "elsewhere";
    fs::create_directory(elsewhere);
    fs::create_directory_symlink(elsewhere, dir_.path() / "linked");
    fs::create_symlink(elsewhere / "new", dir_.path() / "dangling");
    dir_.write("file", "");
    for (const auto& bad :
         {dir_.path() / "linked" / "1000", dir_.path() / "dangling", dir_.path() / "file",
          dir_.path() / "file" / "1000", dir_.path() / std::string(300, 'n'), fs::path("relative/1000"), fs::path()}) {
        const RuntimeDirectory directory(bad, "runtime-user");
        EXPECT_FALSE(directory.valid()) << bad;
    }
    EXPECT_TRUE(fs::is_empty(elsewhere));
    EXPECT_FALSE(fs::exists("/relative"));
    EXPECT_THAT(journal.lines(),
                HasSubstr("startSession: create xdg directory failed, path: " + (dir_.path() / "dangling").string()));
}

TEST_F(RuntimeDirectoryTest, UndoesItsParentsWhenItFailsHalfway) {
    { EXPECT_FALSE(RuntimeDirectory(top_ / "deep" / std::string(300, 'n'), "runtime-user").valid()); }
    EXPECT_FALSE(fs::exists(top_));
}

} // namespace
