// X authority files: the record, who may read it, and what may lie in the file's place.
#include "xauthority.h"

#include "exceptions.h"
#include "scratch.h"
#include "user_database.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <numeric>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Vard::writeXauthority;
using Vard::xauthorityRecord;

std::vector<uint8_t> cookie() {
    std::vector<uint8_t> bytes(32);
    std::iota(bytes.begin(), bytes.end(), static_cast<uint8_t>(0xE0));
    return bytes;
}

std::vector<uint8_t> bytesOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(XauthorityRecord, HoldsTheLengthsOfItsActualValues) {
    std::vector<uint8_t> expected{0x01, 0x00, 0x00, 0x03, 't', 's', '1', 0x00, 0x02, '3', '3', 0x00, 0x12};
    const std::string name = "MIT-MAGIC-COOKIE-1";
    expected.insert(expected.end(), name.begin(), name.end());
    expected.insert(expected.end(), {0x00, 0x20});
    const auto value = cookie();
    expected.insert(expected.end(), value.begin(), value.end());
    EXPECT_EQ(xauthorityRecord("ts1", 33, value), expected);

    const auto other = xauthorityRecord(std::string(300, 'h'), 1234, {7});
    EXPECT_EQ(std::vector<uint8_t>(other.begin() + 2, other.begin() + 4), (std::vector<uint8_t>{0x01, 0x2C}));
    EXPECT_EQ(other.size(), 2U + 2 + 300 + 2 + 4 + 2 + 18 + 2 + 1);
}

class XauthorityTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        Scratch::run("useradd -M xauth-user && groupadd xauth-readers");
    }

    void write(const std::string& group = "xauth-readers") const {
        writeXauthority(path_, record_, "xauth-user", group);
    }
    struct stat info() const {
        struct stat result {};
        EXPECT_EQ(::lstat(path_.c_str(), &result), 0);
        return result;
    }
    // What every written file must look like.
    void expectWritten() const {
        EXPECT_EQ(info().st_mode, static_cast<mode_t>(S_IFREG | 0440));
        EXPECT_EQ(info().st_uid, Vard::Utils::getUserUid("xauth-user"));
        EXPECT_EQ(info().st_gid, Vard::Utils::getGroupGid("xauth-readers"));
        EXPECT_EQ(bytesOf(path_), record_);
    }

    Scratch::Directory dir_;
    fs::path path_ = dir_.path() / "xauth_33";
    std::vector<uint8_t> record_ = xauthorityRecord("ts1", 33, cookie());
};

TEST_F(XauthorityTest, IsReadByTheUsersToolsAndKeepsTheUmask) {
    const mode_t before = ::umask(0);
    write();
    EXPECT_EQ(::umask(before), 0U);
    expectWritten();
    EXPECT_THAT(
        Scratch::run("xauth -f " + path_.string() + " list 2>&1"),
        HasSubstr("ts1/unix:33  MIT-MAGIC-COOKIE-1  e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff"));
}

TEST_F(XauthorityTest, ReplacesWhatIsThereAndFollowsNoLink) {
    const auto victim = dir_.write("victim", "untouched");
    fs::permissions(dir_.write("xauth_33", std::string(4096, 'x')), fs::perms::all);
    write();
    expectWritten();
    write();
    expectWritten();
    for (const auto& target : {victim, dir_.path() / "dangling"}) {
        fs::remove(path_);
        fs::create_symlink(target, path_);
        write();
        expectWritten();
    }
    EXPECT_EQ(bytesOf(victim).size(), 9U);
    EXPECT_FALSE(fs::exists(dir_.path() / "dangling"));
    fs::remove(path_);
    fs::create_directory(path_);
    write();
    expectWritten();
}

// The user's own group may be everybody's, so it must not be what stays when the proper one is missing.
TEST_F(XauthorityTest, NeverGivesTheCookieToAForeignGroup) {
    write("no-such-group");
    EXPECT_EQ(info().st_uid, Vard::Utils::getUserUid("xauth-user"));
    EXPECT_EQ(info().st_gid, 0U);
    EXPECT_EQ(info().st_mode & 07777, 0440U);
    writeXauthority(path_, record_, "no-such-user", "xauth-readers");
    EXPECT_EQ(info().st_uid, 0U);
    write("");
    EXPECT_EQ(info().st_gid, Vard::Utils::getUserGid("xauth-user"));
}

// A mount point cannot be removed, so here something is in the way for sure when the file is opened.
TEST_F(XauthorityTest, NeverWritesIntoAFileThatItDidNotMake) {
    const auto victim = dir_.write("victim", "untouched");
    dir_.write("xauth_33", "");
    ASSERT_EQ(::mount(victim.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_THROW(write(), Vard::vard_error);
    ASSERT_EQ(::umount2(path_.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(bytesOf(victim).size(), 9U);
}

TEST_F(XauthorityTest, FailsWithItsWordWhereNothingCanBeWritten) {
    const Scratch::Journal journal;
    fs::create_directories(path_ / "not-empty");
    EXPECT_THROW(write(), Vard::vard_error);
    EXPECT_TRUE(fs::is_directory(path_ / "not-empty"));
    try {
        writeXauthority("/proc/xauth_33", record_, "xauth-user", "xauth-readers");
        ADD_FAILURE() << "written";
    } catch (const Vard::vard_error& err) {
        EXPECT_STREQ(err.what(), "createXauthFile");
    }
    EXPECT_THAT(journal.lines(), HasSubstr("createXauthFile: create xauthfile failed, path: /proc/xauth_33"));
}

TEST_F(XauthorityTest, LeavesNoHalfWrittenFile) {
    ASSERT_EQ(::mount("tmpfs", dir_.path().c_str(), "tmpfs", 0, "size=4k"), 0);
    dir_.write("filler", std::string(4096, 'x'));
    EXPECT_THROW(write(), Vard::vard_error);
    EXPECT_FALSE(fs::exists(path_));
    ASSERT_EQ(::umount2(dir_.path().c_str(), MNT_DETACH), 0);
}

} // namespace
