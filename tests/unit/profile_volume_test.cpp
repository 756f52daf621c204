// Profile partitions, on a disk of this test's own.
#include "profile_volume.h"

#include "file_descriptor.h"
#include "scratch.h"
#include "utils.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using Vard::FileDescriptor;
using Vard::findProfileVolume;
using Vard::mountProfile;
using Vard::PVOL;
using Vard::unmountProfile;

/// A loop device over an image. Loop devices are the whole machine's: the kernel is told to give this one back with its
/// partitions as soon as nobody holds it, even if the test is killed.
class LoopDevice {
public:
    explicit LoopDevice(const fs::path& image) {
        const FileDescriptor backing(::open(image.c_str(), O_RDWR | O_CLOEXEC));
        const FileDescriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
        while (!attach(control.get(), backing.get())) {
        }
        Scratch::run("partx --add " + path_); // this kernel does not look for GPT partitions
    }
    [[nodiscard]] std::string partition(int number) const { return path_ + "p" + std::to_string(number); }

private:
    // False when another process was quicker to take the free number.
    bool attach(int control, int backing) {
        path_ = "/dev/loop" + std::to_string(::ioctl(control, LOOP_CTL_GET_FREE));
        device_.reset(::open(path_.c_str(), O_RDWR | O_CLOEXEC));
        loop_config config{};
        config.fd = static_cast<__u32>(backing);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR | LO_FLAGS_PARTSCAN;
        const bool attached = ::ioctl(device_.get(), LOOP_CONFIGURE, &config) == 0;
        if (!attached && errno != EBUSY) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
        return attached;
    }

    std::string path_;
    FileDescriptor device_;
};

/// A mount point of the test's own, empty again when the test is done.
class Home {
public:
    explicit Home(const fs::path& path) : path_(path) { fs::create_directory(path); }
    ~Home() { ::umount2(path_.c_str(), MNT_DETACH); }
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    [[nodiscard]] std::string path() const { return path_.string(); }
    /// What is mounted here, as "device options"; empty when nothing is.
    [[nodiscard]] std::string mounted() const {
        return Scratch::run("findmnt -rno SOURCE,OPTIONS --mountpoint " + path() + " || true");
    }

private:
    fs::path path_;
};

// One disk: the right label with a wrong type, the right type with a label in other case, then two that fit.
class ProfileVolumeTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Scratch::Machine::SetUpTestSuite();
        scratch_ = new Scratch::Directory;
        const auto image = scratch_->write("disk.img", "");
        fs::resize_file(image, 32 << 20);
        const std::string type = Vard::profilePartitionType;
        Scratch::run("sgdisk -n1:0:+4M -c1:" + user_ + " -n2:0:+4M -t2:" + type +
                     " -c2:" + Vard::Utils::stringUpper(user_) + " -n3:0:+4M -t3:" + type + " -c3:" + user_ +
                     " -n4:0:+4M -t4:" + type + " -c4:" + user_ + " " + image.string());
        disk_ = new LoopDevice(image);
        for (int number = 1; number <= 4; ++number) {
            Scratch::run("mkfs.ext4 -q " + disk_->partition(number));
        }
    }
    static void TearDownTestSuite() {
        delete disk_;
        delete scratch_;
    }

    // Where the scan names it.
    static std::optional<PVOL> volume(int number) {
        for (const auto& found : PVOL::getPartitions()) {
            if (found.devname == disk_->partition(number)) {
                return found;
            }
        }
        return std::nullopt;
    }

    // No other test on this machine has disks of that user.
    static inline const std::string user_ = "pvol" + Vard::Utils::hexString(Vard::Utils::randomBytes(6), "", false);
    static inline Scratch::Directory* scratch_ = nullptr;
    static inline LoopDevice* disk_ = nullptr;

    Scratch::Directory dir_;
    Home home_{dir_.path() / "home"};
};

TEST(FindProfileVolume, TakesTheFirstOfExactTypeAndLabel) {
    const std::string type = Vard::profilePartitionType;
    const std::list<PVOL> volumes{{"a", "", "ann"},    {"b", type, ""},
                                  {"c", type, "anna"}, {"d", Vard::Utils::stringUpper(type), "ann"},
                                  {"e", type, "Ann"},  {"f", type, std::string("ann\0", 4)},
                                  {"g", type, "ann"},  {"h", type, "ann"}};
    ASSERT_NE(findProfileVolume(volumes, "ann"), nullptr);
    EXPECT_EQ(findProfileVolume(volumes, "ann")->devname, "g");
    EXPECT_EQ(findProfileVolume(volumes, "an"), nullptr);
    EXPECT_EQ(findProfileVolume({}, "ann"), nullptr);
}

TEST_F(ProfileVolumeTest, ListsPartitionsWithTypeAndLabel) {
    const auto other = volume(1);
    const auto profile = volume(3);
    ASSERT_TRUE(other && profile);
    EXPECT_EQ(other->type, "0fc63daf-8483-4772-8e79-3d69d8477de4");
    EXPECT_EQ(other->label, user_);
    EXPECT_EQ(profile->type, Vard::profilePartitionType);
    EXPECT_EQ(profile->label, user_);
    EXPECT_EQ(volume(2)->label, Vard::Utils::stringUpper(user_));
}

TEST_F(ProfileVolumeTest, MountsTheFirstFittingPartitionAndUnmountsIt) {
    const auto partitions = PVOL::getPartitions();
    const std::string first = findProfileVolume(partitions, user_)->devname;
    EXPECT_TRUE(first == disk_->partition(3) || first == disk_->partition(4)) << first;
    ASSERT_TRUE(mountProfile(user_, home_.path(), "ext4", "commit=77"));
    EXPECT_THAT(home_.mounted(), testing::StartsWith(first + " "));
    EXPECT_THAT(home_.mounted(), HasSubstr("commit=77"));
    unmountProfile(home_.path());
    EXPECT_EQ(home_.mounted(), "");
    ASSERT_TRUE(mountProfile(user_, home_.path(), "ext4", "")) << "no options at all";
}

TEST_F(ProfileVolumeTest, LogsAFailedMountButNoMissingPartition) {
    const Scratch::Journal journal;
    EXPECT_FALSE(mountProfile(user_ + "x", home_.path(), "ext4", ""));
    EXPECT_THAT(journal.lines(), IsEmpty());
    EXPECT_FALSE(mountProfile(user_, home_.path(), "no-such-fs", ""));
    EXPECT_FALSE(mountProfile(user_, home_.path(), "ext4", "no-such-option"));
    EXPECT_FALSE(mountProfile(user_, home_.path() + "/missing", "ext4", ""));
    EXPECT_EQ(journal.lines(),
              "sessionMountProfile: mount failed, error: No such device, code: 19\n"
              "sessionMountProfile: mount failed, error: Invalid argument, code: 22\n"
              "sessionMountProfile: mount failed, error: No such file or directory, code: 2\n");
    EXPECT_EQ(home_.mounted(), "");
}

TEST_F(ProfileVolumeTest, FollowsNoLinkInTheHomesPlace) {
    const auto link = dir_.path() / "link";
    fs::create_directory_symlink(home_.path(), link);
    EXPECT_FALSE(mountProfile(user_, link.string(), "ext4", ""));
    EXPECT_EQ(home_.mounted(), "");
    ASSERT_TRUE(mountProfile(user_, home_.path(), "ext4", ""));
    unmountProfile(link.string());
    EXPECT_NE(home_.mounted(), "");
}

} // namespace
