// Profile partitions, on a disk of this test's own.
#include "profile_volume.h"

#include "encoding.h"
#include "file_descriptor.h"
#include "random_bytes.h"
#include "scratch.h"
#include "user_database.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <optional>
#include <thread>
#include <utility>

namespace {

namespace fs = std::filesystem;
using Vard::FileDescriptor;
using Vard::findProfileVolume;
using Vard::ProcessHandle;
using Vard::ProfileMount;

const std::string type = Vard::profilePartitionType;

/// A loop device over an image. Loop devices are the whole machine's: this one is told at once to go, which it does,
/// with its partitions, as soon as nobody holds it, even if the test is killed.
class LoopDevice {
public:
    explicit LoopDevice(const fs::path& image)
        : path_(Scratch::run("losetup --find --partscan --show " + image.string() + " | tr -d '\\n'")),
          device_(::open(path_.c_str(), O_RDWR | O_CLOEXEC)) {
        Scratch::run("losetup --detach " + path_);
        Scratch::run("partx --add " + path_); // this kernel does not look for GPT partitions
    }
    [[nodiscard]] std::string partition(int number) const { return path_ + "p" + std::to_string(number); }

private:
    std::string path_;
    FileDescriptor device_;
};

// One disk: the right label with a wrong type, then one that fits.
class ProfileVolumeTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        const Scratch::Directory scratch; // the device keeps the file
        const auto image = scratch.write("disk.img", "");
        fs::resize_file(image, 32 << 20);
        Scratch::run("sgdisk -n1:0:+4M -c1:" + user_ + " -n2:0:+4M -t2:" + type + " -c2:" + user_ + " " +
                     image.string());
        disk_.emplace(image);
        Scratch::run("mkfs.ext4 -q " + disk_->partition(1) + " && mkfs.ext4 -q " + disk_->partition(2));
    }

    ProfileVolumeTest() { fs::create_directory(home_); }
    ~ProfileVolumeTest() override { ::umount2(home_.c_str(), MNT_DETACH); }

    /// What the home is, as "device options"; empty when nothing is mounted there.
    [[nodiscard]] std::string mounted() const {
        return Scratch::run("findmnt -rno SOURCE,OPTIONS --mountpoint " + home_ + " || true");
    }

    ProfileMount mount(const std::string& home, const std::string& option = "") {
        return volumes_.mount(tasks_, user_, home, "ext4", option);
    }
    void end(ProfileMount mount, const std::vector<ProcessHandle>& holders = {}) {
        mount.leave(holders, Vard::unknownUid);
        EXPECT_TRUE(tasks_.drain(std::chrono::minutes(1)));
    }

    // No other test on this machine has disks of that user.
    static inline const std::string user_ = "pvol" + Vard::Utils::hexString(Vard::Utils::randomBytes(6), "", false);
    static inline std::optional<LoopDevice> disk_;

    Scratch::Directory dir_;
    const std::string home_ = dir_.path() / "home";
    Vard::BackgroundTasks tasks_;
    Vard::ProfileVolumes volumes_;
};

TEST(FindProfileVolume, TakesTheFirstOfExactTypeAndLabel) {
    const std::list<Vard::PVOL> volumes{{"a", "", "ann"},   {"b", type, ""},    {"c", type, "anna"},
                                        {"d", type, "Ann"}, {"e", type, "ann"}, {"f", type, "ann"}};
    ASSERT_NE(findProfileVolume(volumes, "ann"), nullptr);
    EXPECT_EQ(findProfileVolume(volumes, "ann")->devname, "e");
    EXPECT_EQ(findProfileVolume(volumes, "an"), nullptr);
}

TEST_F(ProfileVolumeTest, FollowsALinkInTheHomesPlaceWhenItIsRootsAlone) {
    const std::string link = dir_.path() / "link";
    fs::create_directory_symlink(home_, link);
    auto profile = mount(link);
    EXPECT_NE(mounted(), "");
    fs::remove(link);
    end(std::move(profile));
    EXPECT_EQ(mounted(), "") << "from where it was mounted, whatever the link is by now";

    fs::create_directory_symlink(home_, link);
    Scratch::run("chown -h daemon " + link);
    EXPECT_FALSE(mount(link));
    EXPECT_EQ(mounted(), "");
}

TEST_F(ProfileVolumeTest, GoesWithTheLastSessionOnceItsProcessesHaveGone) {
    auto first = mount(home_, "commit=77");
    EXPECT_THAT(mounted(), testing::MatchesRegex(disk_->partition(2) + " .*commit=77.*"));
    auto second = mount(home_);
    end(std::move(first));
    EXPECT_NE(mounted(), "") << "the second session still runs";
    // Longer than all attempts together take when nobody waits for it.
    const auto holder = ProcessHandle::of(Scratch::startSleep("4", home_));
    std::jthread reaping([pid = holder.pid()] { ::waitpid(pid, nullptr, 0); });
    end(std::move(second), {holder});
    EXPECT_EQ(mounted(), "");
}

} // namespace
