// Users and groups, of every size, and names that are not asked for.
#include "user_database.h"

#include "child_waits.h"
#include "scratch.h"

#include <algorithm>
#include <fstream>
#include <thread>

namespace {

using namespace Vard;
using namespace std::string_literals;

const std::string tooLong(256, 'r'); // the database has it; nobody logs in by it

class UserDatabase : public Scratch::Machine {
protected:
    // The entries are longer than any first buffer.
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        std::ofstream("/etc/passwd", std::ios::app)
            << "big:x:54321:54322:" << std::string(20000, 'g') << ":/home/big:/bin/sh\n"
            << tooLong << ":x:54325:54325:::\n";
        Scratch::run(
            "(echo crowd:x:54322:$(seq -s, -f m%.0f 2000),last; echo nobodys:x:54324:; "
            "seq 60001 60100 | sed 's/.*/g&:x:&:big/') >>/etc/group");
    }

    static std::string owner(const std::filesystem::path& path) {
        return Scratch::run("stat -c %u:%g " + path.string());
    }
};

TEST_F(UserDatabase, EntriesOfAnySizeAreReadWhole) {
    const UserInfo big = Utils::getUserInfo("big");
    EXPECT_EQ(big.uid, 54321U);
    EXPECT_EQ(big.gecos, std::string(20000, 'g'));
    EXPECT_EQ(big.shell, "/bin/sh");
    const auto members = Utils::getGroupMembers("crowd");
    ASSERT_EQ(members.size(), 2001U);
    EXPECT_EQ(members.front() + members.back(), "m1last");
    EXPECT_TRUE(Utils::getGroupMembers("nobodys").empty());
    const auto groups = Utils::getUserGroups("big", 54322);
    EXPECT_EQ(groups.size(), 101U) << "the primary one and all others";
    EXPECT_NE(std::ranges::find(groups, 60100U), groups.end());
}

// The ids of nobody are those that no call takes for root; and a name that only begins like a user is not that user.
TEST_F(UserDatabase, UnknownNamesAreNobody) {
    for (const std::string& name : {""s, "root\0x"s, "root\n"s, "root:x"s, "../root"s, tooLong, "nobody-knows"s}) {
        EXPECT_EQ(Utils::getUserUid(name), unknownUid) << name;
        EXPECT_EQ(Utils::getGroupGid(name), unknownGid) << name;
    }
}

TEST_F(UserDatabase, OwnersChangeOnTheObjectItselfOrNotAtAll) {
    const Scratch::Directory scratch;
    const auto file = scratch.write("file", "");
    const auto link = scratch.path() / "link";
    std::filesystem::create_symlink(file, link);
    EXPECT_TRUE(Utils::setOwner(link, "big", ""));
    EXPECT_EQ(owner(link), "54321:54322\n") << "the user's own group";
    EXPECT_EQ(owner(file), "0:0\n") << "a link is not followed";
    EXPECT_FALSE(Utils::setOwner(file, "nobody-knows", "crowd"));
    EXPECT_FALSE(Utils::setOwner(file, "big", "nobody-knows"));
    EXPECT_EQ(owner(file), "0:0\n") << "half an owner is none";
    EXPECT_TRUE(Utils::setOwner(file, "", "nobodys"));
    EXPECT_EQ(owner(file), "0:54324\n");
}

// Another thread inside the user database at the moment of a fork must not leave its locks to the child.
TEST_F(UserDatabase, ForksWhileOthersLookUsersUpNeverHang) {
    const auto found = [] {
        return Utils::getUserInfo("daemon").known() && !Utils::getUserGroups("daemon", 1).empty();
    };
    std::jthread other([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            found();
        }
    });
    for (int i = 0; i < 300; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::alarm(20);
            ::_exit(found() ? 0 : 1);
        }
        ASSERT_EQ(waitProcessPid(pid), 0) << "child " << i;
    }
}

} // namespace
