// Runtime directories: whose they are, and that a start which came to nothing leaves nothing.
#include "user_runtime_directory.h"

#include "scratch.h"
#include "user_database.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Vard::RuntimeDirectory;

std::string modeAndOwner(const fs::path& path) { return Scratch::run("stat -c '%A %U:%G' " + path.string()); }

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
        const mode_t before = ::umask(mask);
        const RuntimeDirectory directory(path_.string() + "/", "runtime-user");
        ::umask(before);
        EXPECT_TRUE(directory.valid());
        EXPECT_EQ(modeAndOwner(path_), "drwx------ runtime-user:runtime-user\n");
        EXPECT_EQ(modeAndOwner(top_), "drwxr-xr-x root:root\n");
    }
}

TEST_F(RuntimeDirectoryTest, RemovesWhatAFailedStartMadeAndNothingElse) {
    EXPECT_FALSE(RuntimeDirectory(path_ / std::string(300, 'n'), "runtime-user").valid());
    EXPECT_FALSE(fs::exists(top_)) << "the parents of one that could not be made";
    {
        const RuntimeDirectory directory(path_, "runtime-user");
        fs::create_directory(path_.parent_path() / "1001"); // another session's, meanwhile
    }
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(fs::exists(path_.parent_path() / "1001"));
    RuntimeDirectory(path_, "runtime-user").keep();
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(RuntimeDirectoryTest, LeavesAnExistingDirectoryAsItIs) {
    fs::create_directories(path_);
    ASSERT_EQ(::chmod(path_.c_str(), 01775), 0);
    fs::create_directory_symlink(top_, dir_.path() / "linked");
    for (const auto& path : {path_, dir_.path() / "linked" / "deep" / "1000"}) {
        EXPECT_TRUE(RuntimeDirectory(path, "runtime-user").valid()) << path;
    }
    EXPECT_EQ(modeAndOwner(path_), "drwxrwxr-t root:root\n");
}

TEST_F(RuntimeDirectoryTest, FollowsNoLinkAndTakesNoFile) {
    const Scratch::Journal journal;
    const auto elsewhere = dir_.path() / "elsewhere";
    const auto dangling = dir_.path() / "dangling";
    fs::create_directory(elsewhere);
    fs::create_directory(elsewhere / "own");
    const auto planted = dir_.path() / "planted";
    fs::create_directory_symlink(elsewhere / "own", planted);
    const auto users = dir_.path() / "users";
    fs::create_directory_symlink(elsewhere, users);
    Scratch::run("chown -h runtime-user " + users.string());
    const auto open = dir_.path() / "open"; // where a user may change whose link is whose
    fs::create_directory(open);
    fs::create_directory_symlink(elsewhere, open / "linked");
    fs::permissions(open, fs::perms::all | fs::perms::sticky_bit);
    fs::create_symlink(elsewhere / "new", dangling);
    fs::create_directory_symlink("loop", dir_.path() / "loop");
    const auto file = dir_.write("file", "");
    for (const auto& bad :
         {planted, planted / "", users / "own", users / "1000", open / "linked" / "1000", dangling,
          dir_.path() / "loop" / "1000", file, file / "1000", fs::path("relative/1000"), fs::path()}) {
        EXPECT_FALSE(RuntimeDirectory(bad, "runtime-user").valid()) << bad;
    }
    EXPECT_EQ(Scratch::run("ls -A " + elsewhere.string()), "own\n");
    EXPECT_FALSE(fs::exists("/relative"));
    EXPECT_THAT(journal.lines(), HasSubstr("startSession: create xdg directory failed, path: " + dangling.string()));
}

TEST_F(RuntimeDirectoryTest, FollowsLinksThatAreRootsAlone) {
    fs::create_directories(dir_.path() / "run" / "deep");
    fs::create_directory_symlink("../run/./deep", dir_.path() / "run" / "relative");
    fs::create_directory_symlink(dir_.path() / "run" / "relative", dir_.path() / "linked");
    EXPECT_TRUE(RuntimeDirectory(dir_.path() / "linked" / "user" / "1000", "runtime-user").valid());
    EXPECT_FALSE(fs::exists(dir_.path() / "run" / "deep" / "user")) << "that start came to nothing";
    RuntimeDirectory(dir_.path() / "linked" / "user" / "1000", "runtime-user").keep();
    EXPECT_EQ(modeAndOwner(dir_.path() / "run" / "deep" / "user" / "1000"), "drwx------ runtime-user:runtime-user\n");
}

TEST_F(RuntimeDirectoryTest, RefusesAnotherUsersDirectory) {
    const Scratch::Journal journal;
    fs::create_directories(path_);
    ASSERT_TRUE(Vard::Utils::setOwner(path_, "daemon", ""));
    EXPECT_FALSE(RuntimeDirectory(path_, "runtime-user").valid());
    EXPECT_THAT(journal.lines(), HasSubstr("xdg directory of another user refused, path: " + path_.string()));
    ASSERT_TRUE(Vard::Utils::setOwner(path_, "runtime-user", ""));
    EXPECT_TRUE(RuntimeDirectory(path_, "runtime-user").valid());
}

} // namespace
