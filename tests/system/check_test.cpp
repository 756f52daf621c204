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
        shell("rm -f /usr/local/bin/systemctl; gpasswd -d alice vard-frontend");
    }

    /// Checks with a configuration, and expects its exit status and lines that match. Whoever starts the command
    /// ignores his children, and has one that is to live on.
    static void expect(int status, const std::vector<std::string>& lines, const std::string& settings = "{}",
                       const std::string& variable = "") {
        writeFile("/etc/vard/check.json", settings);
        const auto before = state();
        const auto seen = shell(variable + R"( perl -e '$SIG{CHLD} = "IGNORE"; exec @ARGV if fork;
            exec "exec sleep 4343 >/dev/null 2>&1"' vardctl check --config /etc/vard/check.json)");
        EXPECT_EQ(seen.status, status) << seen.text;
        EXPECT_EQ(shell("pkill -f [s]leep.4343").status, 0) << "what ran before was ended";
        for (const auto& line : lines) {
            EXPECT_THAT(seen.text, ContainsRegex(line));
        }
        EXPECT_EQ(state(), before) << "something is left behind";
    }
    static std::string state() {
        return shell(
                   "find /tmp /run -maxdepth 3 -xdev -not -path '/run/log*' | sort; stat -c %a /etc/vard; pgrep -fa "
                   "'[X]org|[s]leep.4242'")
            .text;
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
        cd /etc/X11; mkdir -m 700 own; printf '#!/no/such\n' >script; printf '#!/bin/sh\nexit 127' >tool
        chmod 755 script tool; cp script own; install -m 750 tool group; install -o alice tool hers
        echo '[{"path": "/gone"}, {"path": "/etc/X11/hers"}, {"path": "/etc/X11/group"}]' >/etc/vard/programs.json
        d=/var/lib/vard_connector/freerdp/shadow; mkdir -p $d; openssl genrsa -out $d/shadow.key
        openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=x -keyout /tmp/key -out /tmp/crt
        openssl x509 -in /tmp/crt -signkey /tmp/key -days -1 -out $d/shadow.crt; rm /tmp/key /tmp/crt
        chown -R vard-connector: /var/lib/vard_connector; chmod 644 $d/shadow.key)");
    const std::string listen = R"( -MIO::Socket -e 'IO::Socket::INET->new(LocalPort => 3389, Listen => 1,
        LocalAddr => shift)->accept' 127.0.0.)";
    const std::string disguise = "unshare -Urm sh -c 'mount --bind /usr/bin/perl $0 && exec $0 \"$@\"' ";
    const auto squatter = launch("exec perl" + listen + "1");
    const auto second = launch("exec setpriv --reuid alice --clear-groups " + disguise +
                               "/usr/libexec/vard/vard_connector" + listen + "2");
    ASSERT_TRUE(waitUntil([] { return shell("ss -Hlnt sport = 3389 | wc -l").text == "2\n"; }));
    expect(1,
           {"warning +configuration +/etc/vard can be written", "error +configuration .*no attempt is left",
            "warning +configuration .* Duplicate key: 'session:pth'.* key: session:pth",
            "error +programs .*/script cannot .* /no/such", "warning +programs .*/tool cannot be run",
            "warning +published .*/gone is missing.*/hers belongs to alice.*/group .* by one group alone",
            "error +notices .*/own/script cannot be", "error +pam +module missing: pam_nosuch.so",
            "error +pam +.* is admitted: root", "warning +pam +draining: .* /etc/nologin", "warning +groups .*: alice",
            "error +xserver .*/nosuch_drv.so is missing", "warning +xserver +no server was .* xvfb:sock",
            "error +port .* by pid [0-9]+, /usr/bin/perl", "error +port .* by a program of alice's",
            "error +certificate +the certificate has ended", "error +hash +it makes no",
            "error +certificate .*shadow.key is no file.*error +certificate .* not the key of"},
           R"({"session:pth": "x", "session:pth": "y", "xcon:attempts:count": 0, "hash:path": "/usr/bin/true",
               "session:path": "/etc/X11/script", "xrandr:path": "/etc/X11/tool", "helper:notification":
               "/etc/X11/own/script", "xvfb:sock": "/tmp/../etc/vard/X%{display}"})");
    EXPECT_EQ(::kill(squatter, SIGKILL) + ::kill(second, SIGKILL), 0);
}

TEST_F(CheckTest, ABrokenFileIsShownAndWhatHangsIsEnded) {
    expect(1, {"error +configuration .* Line 2, Column 21"}, "{\n  \"display:min\": 33,,\n}");
    writeFile("/etc/vard/hangs", "#!/bin/sh\nid -u >>/etc/vard/ran\nsetsid sleep 4242 &\nexec sleep 4242", 0755);
    mustRun(R"(ln -s /etc/vard/hangs /usr/local/bin/systemctl; install -m 666 /dev/null /etc/vard/ran
        rm /etc/pam.d/vard; echo 'Section "Nonsense"' >>/etc/X11/vard.conf)");
    expect(1,
           {"error +hash +it makes no line: it did not end in time", "error +pam +no service file",
            "error +xserver .*Parse error on line", "error +bus +the system bus cannot be reached"},
           R"({"hash:path": "/etc/vard/hangs"})", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nothing");
    EXPECT_EQ(readFile("/etc/vard/ran"), "65533\n0\n") << "a stranger runs what users do, root the system's";
}

} // namespace
