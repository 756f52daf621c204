// X authority files: the record, who may read it, and what may lie in the file's place.
#include "xauthority.h"

#include "exceptions.h"
#include "scratch.h"

#include <sys/mount.h>

#include <optional>

namespace {

namespace fs = std::filesystem;
using Vard::XAuthorityFile;
using Vard::xauthorityRecord;

class XauthorityTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        Scratch::run("useradd -M -U xauth-user && groupadd xauth-readers");
    }

    void write(const std::string& group = "xauth-readers", const std::string& user = "xauth-user") {
        file_.emplace(path_, record_, user, group);
    }
    std::string owners() const { return Scratch::run("stat -c '%A %U %G' " + path_.string()); }

    Scratch::Directory dir_;
    fs::path path_ = dir_.path() / "xauth_33";
    std::vector<uint8_t> record_ = xauthorityRecord("ts1", 33, {0x00, 0xE0, 0xFF});
    std::optional<XAuthorityFile> file_;
};

TEST_F(XauthorityTest, ReplacesWhatIsThereAndFollowsNoLink) {
    for (const char* planted :
         {"seq 2000 > xauth_33; chmod 777 xauth_33", "echo untouched > victim; ln -s victim xauth_33",
          "ln -s dangling xauth_33", "mkdir xauth_33"}) {
        file_.reset();
        EXPECT_FALSE(fs::exists(path_)) << "it goes with its object";
        Scratch::run("cd " + dir_.path().string() + "; " + planted);
        write();
        EXPECT_EQ(owners(), "-r--r----- xauth-user xauth-readers\n") << planted;
        EXPECT_EQ(fs::file_size(path_), record_.size()) << planted;
    }
    EXPECT_EQ(Scratch::run("cd " + dir_.path().string() + "; ls; cat victim"), "victim\nxauth_33\nuntouched\n");
}

// The user's own group may be everybody's, so it must not be what stays when the proper one is missing.
TEST_F(XauthorityTest, NeverGivesTheCookieToAForeignGroup) {
    write("no-such-group");
    EXPECT_EQ(owners(), "-r--r----- xauth-user root\n");
    write("");
    EXPECT_EQ(owners(), "-r--r----- xauth-user xauth-user\n");
    write("xauth-readers", "no-such-user");
    EXPECT_EQ(owners(), "-r--r----- root xauth-readers\n");
}

TEST_F(XauthorityTest, LeavesNoHalfWrittenFile) {
    ASSERT_EQ(::mount("tmpfs", dir_.path().c_str(), "tmpfs", 0, "size=4k"), 0);
    dir_.write("filler", std::string(4096, 'x'));
    EXPECT_THROW(write(), Vard::vard_error);
    EXPECT_FALSE(fs::exists(path_));
    ASSERT_EQ(::umount2(dir_.path().c_str(), MNT_DETACH), 0);
}

} // namespace
