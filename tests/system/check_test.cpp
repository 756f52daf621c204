// The look at the machine, as installed: nothing wrong where nothing is, and each planted fault in its line.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::ContainsRegex;

/// Files of the machine are put back when it has been looked at.
class CheckTest : public ServiceTest {
protected:
    CheckTest() { mustRun("mkdir /etc/saved; cp -a /etc/vard /etc/pam.d /etc/X11 /etc/saved"); }
    ~CheckTest() override {
        shell("cd /etc; rm -rf vard pam.d X11 nologin /var/lib/vard_connector; mv saved/* .; rmdir saved");
    }

    /// Checks with a configuration, and expects its exit status and lines that match.
    static void expect(int status, const std::vector<std::string>& lines, const std::string& settings = "{}",
                       const std::string& variable = "") {
        writeFile("/etc/vard/check.json", settings);
        const auto before = state();
        const auto seen = shell(variable + " vardctl check --config /etc/vard/check.json");
        EXPECT_EQ(seen.status, status) << seen.text;
        for (const auto& line : lines) {
            EXPECT_THAT(seen.text, ContainsRegex(line));
        }
        EXPECT_EQ(state(), before) << "something is left behind";
    }
    static std::string state() {
        return shell("ls -AR /tmp/.X11-unix; ls -A /tmp /run; pgrep -a Xorg; pgrep -f [s]leep.4242").text;
    }
};

TEST_F(CheckTest, NothingIsWrongWithACleanMachine) {
    expect(0, {"ok +xserver +a server was started and answers", "warning +bus +the service is not on the bus"});
    start();
    expect(0, {"ok +bus +the service answers, pid " + std::to_string(service->pid()), "ok +bus +the bus knows the"});
    EXPECT_EQ(shell("runuser -u alice -- vardctl check").status, 4);
    EXPECT_EQ(mustRun("vardctl check --json | jq -r 'map(select(.remedy != \"\").status) | unique[]'"), "warning\n");
}

TEST_F(CheckTest, EachFaultHasItsLine) {
    mustRun(R"(sed -i '/uid >= 1000/d; s/pam_limits/pam_nosuch/' /etc/pam.d/vard; touch /etc/nologin
        sed -i 's/"dummy"/"nosuch"/' /etc/X11/vard.conf; chmod o+w /etc/vard; gpasswd -a alice vard-frontend
        echo '[{"name": "Gone", "path": "/usr/bin/gone"}]' >/etc/vard/programs.json
        d=/var/lib/vard_connector/freerdp/shadow; mkdir -p $d; openssl genrsa -out $d/shadow.key
        openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=x -keyout /tmp/key -out /tmp/crt
        openssl x509 -in /tmp/crt -signkey /tmp/key -days -1 -out $d/shadow.crt; rm /tmp/key /tmp/crt
        chown -R vard-connector: /var/lib/vard_connector; chmod 644 $d/shadow.key)");
    const auto squatter =
        launch("perl -MIO::Socket -e '$s = IO::Socket::INET->new(LocalPort => 3389, Listen => 1); sleep'");
    ASSERT_TRUE(waitUntil([] { return !shell("ss -Hlnt sport = 3389").text.empty(); }));
    expect(
        1,
        {"error +configuration +/etc/vard can be written by everybody", "warning +configuration .* key: session:pth",
         "error +programs +session:path: /usr/bin/gone is missing", "error +programs .*/home/alice belongs to alice",
         "warning +published +published program Gone is missing", "error +pam +module missing: pam_nosuch.so",
         "error +pam +.* is admitted: root", "warning +pam +draining: .* /etc/nologin", "warning +groups .*: alice",
         "error +xserver .*/nosuch_drv.so is missing", "error +xserver .* it has ended", "error +hash +it makes no",
         "error +port +port 3389 is held by pid [0-9]+, /usr/bin/perl", "error +certificate +the certificate has ended",
         "error +certificate .* not the key of", "error +certificate .*shadow.key is no file of"},
        R"({"session:pth": "x", "xvfb:netns": false, "session:path": "/usr/bin/gone", "hash:path": "/usr/bin/true",
               "xrandr:path": ")" +
            alice.script("tool", "") + "\"}");
    EXPECT_EQ(::kill(squatter, SIGKILL), 0);
    shell("gpasswd -d alice vard-frontend");
}

TEST_F(CheckTest, ABrokenFileIsShownAndWhatHangsIsEnded) {
    expect(1, {"error +configuration .* Line 2, Column 21"}, "{\n  \"display:min\": 33,,\n}");
    writeFile("/usr/local/bin/hangs", "#!/bin/sh\nsetsid sleep 4242 &\nexec sleep 4242", 0755);
    mustRun("rm /etc/pam.d/vard; printf 'Section \"Nonsense\"\\n' >>/etc/X11/vard.conf");
    expect(1,
           {"error +hash +it makes no line: it did not end in time", "error +pam +no service file",
            "error +xserver .*Parse error on line", "error +bus +the system bus cannot be reached"},
           R"({"hash:path": "/usr/local/bin/hangs"})", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nothing");
}

} // namespace
