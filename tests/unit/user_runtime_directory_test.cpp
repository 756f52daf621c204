// Runtime directories: whose they are, and that a start which came to nothing leaves nothing.
#include "user_runtime_directory.h"

#include "scratch.h"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Vard::UserRuntimeDirectory;

std::string modeAndOwner(const fs::path& path) { return Scratch::run("stat -c '%A %U:%G' " + path.string()); }

class RuntimeDirectoryTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        Scratch::run("useradd -M runtime-user");
    }
    static bool made(const fs::path& path) { return UserRuntimeDirectory(path, "runtime-user").valid(); }

    Scratch::Directory dir_;
    fs::path top_ = dir_.path() / "user";
    fs::path path_ = top_ / "deep" / "1000";
};

TEST_F(RuntimeDirectoryTest, CreatesWithParentsWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const mode_t before = ::umask(mask);
        const UserRuntimeDirectory directory(path_.string() + "/", "runtime-user");
        ::umask(before);
        EXPECT_TRUE(directory.valid());
        EXPECT_EQ(modeAndOwner(path_), "drwx------ runtime-user:runtime-user\n");
        EXPECT_EQ(modeAndOwner(top_), "drwxr-xr-x root:root\n");
    }
}

TEST_F(RuntimeDirectoryTest, RemovesWhatAFailedStartMadeAndNothingElse) {
    EXPECT_FALSE(made(path_ / std::string(300, 'n')));
    EXPECT_FALSE(fs::exists(top_)) << "the parents of one that could not be made";
    {
        const UserRuntimeDirectory directory(path_, "runtime-user");
        fs::create_directory(path_.parent_path() / "1001"); // another session's, meanwhile
    }
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(fs::exists(path_.parent_path() / "1001"));
    UserRuntimeDirectory(path_, "runtime-user").keep();
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(RuntimeDirectoryTest, LeavesAnExistingDirectoryAsItIsAndRefusesAnotherUsers) {
    fs::create_directories(path_);
    ASSERT_EQ(::chmod(path_.c_str(), 01775), 0);
    EXPECT_TRUE(made(path_));
    EXPECT_EQ(modeAndOwner(path_), "drwxrwxr-t root:root\n");
    Scratch::run("chown daemon " + path_.string());
    EXPECT_FALSE(made(path_));
    Scratch::run("chown runtime-user " + path_.string());
    EXPECT_TRUE(made(path_));
}

// In the directory "open" a user may change whose link is whose.
TEST_F(RuntimeDirectoryTest, FollowsNoLinkAndTakesNoFile) {
    Scratch::run("cd " + dir_.path().string() +
                 " && mkdir -p elsewhere/own open && chmod 1777 open && ln -s $PWD/elsewhere/own planted && "
                 "ln -s $PWD/elsewhere users && chown -h runtime-user users && ln -s $PWD/elsewhere open/linked && "
                 "ln -s $PWD/elsewhere/new dangling && ln -s loop loop && touch file");
    for (const char* bad : {"planted", "planted/", "users/own", "users/1000", "open/linked/1000", "dangling",
                            "loop/1000", "file", "file/1000"}) {
        EXPECT_FALSE(made(dir_.path() / bad)) << bad;
    }
    EXPECT_EQ(Scratch::run("ls -A " + (dir_.path() / "elsewhere").string()), "own\n");
    EXPECT_FALSE(made("relative/1000") || made("") || fs::exists("/relative"));
}

TEST_F(RuntimeDirectoryTest, FollowsLinksThatAreRootsAlone) {
    Scratch::run("cd " + dir_.path().string() +
                 " && mkdir -p run/deep && ln -s ../run/./deep run/relative && ln -s $PWD/run/relative linked");
    const auto linked = dir_.path() / "linked" / "user" / "1000";
    EXPECT_TRUE(made(linked));
    EXPECT_FALSE(fs::exists(dir_.path() / "run/deep/user")) << "that start came to nothing";
    UserRuntimeDirectory(linked, "runtime-user").keep();
    EXPECT_EQ(modeAndOwner(dir_.path() / "run/deep/user/1000"), "drwx------ runtime-user:runtime-user\n");
}

} // namespace
