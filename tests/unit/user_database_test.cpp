// Users and groups, of every size, and names that are not asked for.
#include "user_database.h"

#include "file_descriptor.h"
#include "scratch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace {

using namespace Vard;
using namespace std::string_literals;

constexpr size_t manyMembers = 2000;
constexpr gid_t firstGroup = 60001;
const std::string tooLong(256, 'r'); // the database has it; nobody logs in by it

class UserDatabase : public Scratch::Machine {
protected:
    // The entries are longer than any first buffer.
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        std::ofstream("/etc/passwd", std::ios::app)
            << "big:x:54321:54322:" << std::string(20000, 'g') << ":/home/big:/bin/sh\nbare:x:54323:54323:::\n"
            << tooLong << ":x:54325:54325:::\n";
        std::ofstream groups("/etc/group", std::ios::app);
        groups << "crowd:x:54322:m0";
        for (size_t i = 1; i < manyMembers; ++i) {
            groups << ",m" << i;
        }
        groups << "\nnobodys:x:54324:\n";
        for (gid_t i = 0; i < 100; ++i) {
            groups << "g" << i << ":x:" << firstGroup + i << ":big\n";
        }
    }

    static std::string owner(const std::filesystem::path& path) {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0);
        return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
    }
};

TEST_F(UserDatabase, EntriesOfAnySizeAreReadWhole) {
    const UserInfo big = Utils::getUserInfo("big");
    EXPECT_TRUE(big.known());
    EXPECT_EQ(big.uid, 54321U);
    EXPECT_EQ(big.gid, 54322U);
    EXPECT_EQ(big.gecos, std::string(20000, 'g'));
    EXPECT_EQ(big.home, "/home/big");
    EXPECT_EQ(big.shell, "/bin/sh");
    EXPECT_EQ(Utils::getUserInfo("bare").home, "");
    const auto members = Utils::getGroupMembers("crowd");
    ASSERT_EQ(members.size(), manyMembers);
    EXPECT_EQ(members.front() + members.back(), "m0m1999");
    EXPECT_EQ(Utils::getGroupGid("crowd"), 54322U);
    EXPECT_TRUE(Utils::getGroupMembers("nobodys").empty());
    auto groups = Utils::getUserGroups("big", 54322);
    std::ranges::sort(groups);
    ASSERT_EQ(groups.size(), 101U) << "the primary one and all others";
    EXPECT_EQ(groups.front(), 54322U);
    EXPECT_EQ(groups.back(), firstGroup + 99);
}

// The ids of nobody are those that no call takes for root; and a name that only begins like a user is not that user.
TEST_F(UserDatabase, UnknownNamesAreNobody) {
    const Scratch::Journal journal;
    for (const std::string& name : {""s, "root\0x"s, "root\n"s, "root:x"s, "../root"s, tooLong}) {
        EXPECT_FALSE(Utils::getUserInfo(name).known()) << name;
        EXPECT_EQ(Utils::getUserGid(name), unknownGid) << name;
        EXPECT_EQ(Utils::getGroupGid(name), unknownGid) << name;
    }
    EXPECT_EQ(Utils::getUserUid("nobody-knows"), unknownUid);
    EXPECT_EQ(Utils::getUserHome("nobody-knows"), "");
    EXPECT_TRUE(Utils::getGroupMembers("nobody-knows").empty());
    EXPECT_NE(journal.lines().find("getUserInfo: getpwnam failed, error: Success, code: 0\n"), std::string::npos);
}

TEST_F(UserDatabase, OwnersChangeOnTheObjectItselfOrNotAtAll) {
    const Scratch::Directory scratch;
    const auto file = scratch.write("file", "");
    const auto link = scratch.path() / "link";
    std::filesystem::create_symlink(file, link);
    EXPECT_TRUE(Utils::setOwner(link, "big", ""));
    EXPECT_EQ(owner(link), "54321:54322") << "the user's own group";
    EXPECT_EQ(owner(file), "0:0") << "a link is not followed";

    EXPECT_FALSE(Utils::setOwner(file, "nobody-knows", "crowd"));
    EXPECT_FALSE(Utils::setOwner(file, "big", "nobody-knows"));
    EXPECT_EQ(owner(file), "0:0") << "half an owner is none";
    EXPECT_TRUE(Utils::setOwner(file, "", "nobodys"));
    EXPECT_EQ(owner(file), "0:54324");
    const FileDescriptor open(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(Utils::setOwner(open.get(), "big", "nobodys"));
    EXPECT_EQ(owner(file), "54321:54324");
    EXPECT_FALSE(Utils::setOwner(scratch.path() / "missing", "big", ""));
}

} // namespace
