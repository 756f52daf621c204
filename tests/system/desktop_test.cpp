// The desktop made ready: size, windows, resources, the hash line, the profile partition.
#include "service.h"

namespace {

using namespace Test;

class Desktop : public ServiceTest {
protected:
    std::string asAlice(const std::string& command) {
        return shell("runuser -u alice -- env DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 " + command).text;
    }
};

TEST_F(Desktop, SizesAreExactModesOrTheLargestAboveTheRequest) {
    start(Json::Value(Json::objectValue)); // Xorg with its list of modes
    const auto sizeFor = [&](uint16_t width, uint16_t height) {
        EXPECT_EQ(bus.login("alice", width, height), 33);
        const auto session = info(33);
        return session["width"].asString() + "x" + session["height"].asString();
    };
    for (const char* mode : {"1280x1024", "640x480", "1920x1080", "3840x2160", "800x600"}) {
        unsigned width = 0;
        unsigned height = 0;
        ASSERT_EQ(std::sscanf(mode, "%ux%u", &width, &height), 2);
        EXPECT_EQ(sizeFor(static_cast<uint16_t>(width), static_cast<uint16_t>(height)), mode);
    }
    EXPECT_EQ(sizeFor(1000, 700), "3840x2160");
    EXPECT_TRUE(journal.waitFor("waitSessionGeometryUpdate: mode not found, 1000x700"));
    EXPECT_TRUE(journal.waitFor("waitSessionGeometryUpdate: usage mode 3840x2160"));
    EXPECT_EQ(sizeFor(5000, 4000), "3840x2160") << "no mode is larger: the tool cannot do it";
    EXPECT_TRUE(journal.waitFor("mode not found, 5000x4000"));
}

TEST_F(Desktop, ResourcesAndKeycodesAreLoaded) {
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_NE(asAlice("xrdb -query").find("XTerm*background"), std::string::npos);
    EXPECT_NE(asAlice("setxkbmap -print").find("evdev+aliases(qwerty)"), std::string::npos);
    EXPECT_TRUE(journal.has("waitSessionDBus: wait pid: "));
}

TEST_F(Desktop, ProgramsMainWindowIsFittedToTheScreen) {
    writeFile("/tmp/programs.json", R"([{"name":"Term","path":"/usr/bin/xterm","args":["-geometry","20x5+50+50"]}])");
    auto config = testConfig();
    config["session:programs"] = "/tmp/programs.json";
    config["session:path"] = "/usr/bin/xclock";
    start(config);
    ASSERT_EQ(bus.call("vardSessionRequest", "s",
                       R"({"username":"alice","password":"x","program":"Term","width":800,"height":600})")
                  .number,
              33);
    // Without a window manager the terminal leads itself.
    const auto fitted = [&] {
        return asAlice("xwininfo -root -children").find("(\"xterm\" \"XTerm\")  800x600+0+0") != std::string::npos;
    };
    EXPECT_TRUE(waitUntil(fitted)) << asAlice("xwininfo -root -children");
}

TEST_F(Desktop, HashLineIsTheToolsOwn) {
    start();
    const auto line = [](const std::string& options) {
        const std::string text = mustRun("winpr-hash -f sam -u alice -p 'pass word' " + options);
        return text.substr(0, text.find('\n'));
    };
    const auto request = [&](const char* extra) {
        const std::string text = std::string(R"({"username":"alice","password":"pass word")") + extra + "}";
        EXPECT_EQ(bus.call("vardSessionRequest", "s", text.c_str()).number, 33);
        return info(33)["ntlm"].asString();
    };
    EXPECT_EQ(request(""), line("-v 1"));
    EXPECT_EQ(request(R"(,"use:ntlmv2":true,"domain":"corp")"), line("-d CORP -v 2"));
    EXPECT_EQ(request(R"(,"use:ntlmv2":true)"), line("-d '' -v 2"));
    EXPECT_EQ(shell("stat -c '%a %U' /home/alice/.vard /home/alice/.vard/xauth_33.log").text, "700 alice\n640 alice\n");
}

/// A loop device over an image file. Loop devices are the host's: it must be given back whatever happens.
class LoopDevice {
public:
    explicit LoopDevice(const std::string& image)
        : name_(mustRun("losetup --find --show " + image + " | tr -d '\\n'")) {}
    ~LoopDevice() { shell("umount /home/alice; partx -d " + name_ + "; losetup -d " + name_); }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    [[nodiscard]] const std::string& name() const { return name_; }

private:
    std::string name_;
};

TEST_F(Desktop, ProfilePartitionIsTheHomeWhileTheSessionLives) {
    mustRun(
        "truncate -s 64M /var/tmp/disk.img && sgdisk -n 1:0:0 -t 1:773f91ef-66d4-49b5-bd83-d683bf40ad16 -c 1:alice "
        "/var/tmp/disk.img");
    const LoopDevice disk("/var/tmp/disk.img");
    mustRun("partx -a " + disk.name() + "; mkfs.ext4 -q " + disk.name() + "p1 && mkdir -p /var/tmp/disk && mount " +
            disk.name() +
            "p1 /var/tmp/disk && mkdir /var/tmp/disk/inside && chown alice /var/tmp/disk && umount /var/tmp/disk");
    auto config = testConfig();
    config["pvol:enable"] = true;
    config["pvol:fstype"] = "no-such-file-system";
    start(config);
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33) << "a failed mount is no reason to refuse";
    EXPECT_TRUE(journal.waitFor("sessionMountProfile: mount failed, error: No such device"));
    bus.call("vardSessionShutdown", "u", 33U);
    signals.upTo("signalSessionShutdown");
    config["pvol:fstype"] = "ext4";
    ASSERT_TRUE(reload(config));
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_TRUE(exists("/home/alice/inside"));
    bus.call("vardSessionShutdown", "u", 33U);
    EXPECT_TRUE(waitUntil([] { return !exists("/home/alice/inside"); }));
    expectNothingLeft();
    // A stop of the service unmounts as well.
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_TRUE(exists("/home/alice/inside"));
    EXPECT_EQ(service->stop(), 0);
    EXPECT_EQ(shell("grep ' /home/' /proc/mounts").text, "");
}

} // namespace
