// The desktop made ready: resources, the hash line, the profile partition.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::HasSubstr;

class Desktop : public ServiceTest {};

TEST_F(Desktop, HashLineIsTheToolsOwnResourcesAndKeycodesAreLoaded) {
    start();
    const auto line = [](const std::string& options) {
        const std::string text = mustRun("winpr-hash -f sam -u alice -p 'pass word' " + options);
        return text.substr(0, text.find('\n'));
    };
    const auto request = [&](const std::string& extra) {
        const std::string text = R"({"username":"alice","password":"pass word")" + extra + "}";
        EXPECT_EQ(bus.call("vardSessionRequest", "s", text.c_str()).number, 33);
        return info(33)["ntlm"].asString();
    };
    EXPECT_EQ(request(""), line("-v 1"));
    EXPECT_EQ(request(R"(,"use:ntlmv2":true,"domain":"corp")"), line("-d CORP -v 2"));
    EXPECT_EQ(request(R"(,"use:ntlmv2":true)"), line("-d '' -v 2"));
    EXPECT_EQ(shell("stat -c '%a %U' /home/alice/.vard /home/alice/.vard/xauth_33.log").text, "700 alice\n640 alice\n");
    const std::string asAlice = "runuser -u alice -- env DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 ";
    EXPECT_THAT(shell(asAlice + "xrdb -query").text, HasSubstr("XTerm*background"));
    EXPECT_THAT(shell(asAlice + "setxkbmap -print").text, HasSubstr("evdev+aliases(qwerty)"));
    EXPECT_TRUE(journal.has("waitSessionDBus: wait pid: "));
}

/// A loop device over an image file. Loop devices are the host's: it must be given back whatever happens.
struct LoopDevice {
    explicit LoopDevice(const std::string& image)
        : name(mustRun("losetup --find --show " + image + " | tr -d '\\n'")) {}
    ~LoopDevice() { shell("umount -A " + name + "p1; partx -d " + name + "; losetup -d " + name); }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    const std::string name;
};

TEST_F(Desktop, ProfilePartitionIsTheHomeWhileTheSessionLives) {
    // No other machine that shares these devices has a disk of that user.
    const Account user("pvol" + mustRun("od -An -N4 -tx4 /dev/urandom | tr -d ' \\n'"));
    mustRun("truncate -s 64M /var/tmp/disk.img && sgdisk -n 1:0:0 -t 1:773f91ef-66d4-49b5-bd83-d683bf40ad16 -c 1:" +
            user.name() + " /var/tmp/disk.img");
    const LoopDevice disk("/var/tmp/disk.img");
    const std::string partition = disk.name + "p1";
    mustRun("partx -a " + disk.name);
    const auto home = [&] { return shell("findmnt -no SOURCE " + user.home()).text; };
    start(testConfig({{"pvol:enable", true}}));
    Signals signals;
    const auto end = [&](int64_t sid) {
        bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(sid));
        signals.upTo("signalSessionShutdown");
        EXPECT_TRUE(waitUntil([&] { return home().empty(); }));
    };
    const auto first = bus.login(user.name());
    ASSERT_GT(first, 0) << "a failed mount is no reason to refuse";
    EXPECT_TRUE(journal.waitFor("sessionMountProfile: mount failed, error: Invalid argument"));
    end(first);
    mustRun("mkfs.ext4 -q " + partition);
    const auto second = bus.login(user.name());
    EXPECT_EQ(home(), partition + "\n");
    end(second);
    // A stop of the service unmounts as well.
    bus.login(user.name());
    EXPECT_EQ(home(), partition + "\n");
    service->stop();
    EXPECT_EQ(home(), "");
}

} // namespace
