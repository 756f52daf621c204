// Notices to users: what the service starts in a session, and what the user then sees.
#include "service.h"

#include <chrono>

namespace {

using namespace Test;
using namespace std::chrono_literals;

constexpr const char* notifier = "/usr/libexec/vard/vard_notify";

class Notify : public ServiceTest {
protected:
    void login(const Json::Value& config = testConfig()) {
        start(config);
        ASSERT_EQ(bus.login("alice"), 33);
    }
    bool send(uint32_t session, const std::string& header, const std::string& message, int level = 1) {
        const auto reply = bus.call("vardSendNotify", "ussy", session, header.c_str(), message.c_str(), level);
        EXPECT_TRUE(reply.ok()) << reply.text;
        return reply.number == 1;
    }
    /// A command with the session's display, as root.
    static Output onDisplay(const std::string& command) {
        return shell("export XAUTHORITY=/run/vard/xauth_33 DISPLAY=:33 LC_ALL=C.UTF-8; " + command);
    }
    /// The window of that title, as xdotool prints it; waits for it.
    static std::string window(const std::string& title) {
        Output found;
        EXPECT_TRUE(waitUntil([&] {
            found = onDisplay("xdotool search --name '^" + title + "$'");
            return found.status == 0;
        })) << onDisplay("xwininfo -root -tree").text;
        return found.text.substr(0, found.text.find('\n'));
    }
    static bool gone(const std::string& title, std::chrono::seconds limit) {
        return waitUntil([&] { return onDisplay("xdotool search --name '^" + title + "$'").status != 0; }, limit);
    }
    /// Waits until the service has taken every child of that name away, zombies included.
    bool reaped(const std::string& name) const {
        return waitUntil([&] {
            for (const int pid : childrenOf(service->pid())) {
                if (shell("ps -o comm= -p " + std::to_string(pid)).text.find(name) != std::string::npos) {
                    return false;
                }
            }
            return true;
        });
    }
    /// Runs a command as alice, with her display and bus.
    Output asAlice(const std::string& command) const {
        const std::string runtime = "/run/user/" + std::to_string(alice.uid());
        return onDisplay("runuser -u alice -- env XDG_RUNTIME_DIR=" + runtime +
                         " DBUS_SESSION_BUS_ADDRESS=unix:path=" + runtime + "/bus " + command);
    }
};

TEST_F(Notify, WithoutADesktopAWindowShowsItUntilAClickAKeyOrItsTime) {
    login();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(send(33, "Left alone", "nobody closes this"));
    const auto leftAlone = window("Left alone");
    EXPECT_EQ(processes(notifier, "alice").size(), 1U) << "it runs as the session's user";

    EXPECT_TRUE(send(33, "Имя \"x\"", "Перезагрузка <b>", 2));
    const auto clicked = window("Имя \"x\"");
    const auto properties = onDisplay("xprop -id " + clicked).text;
    EXPECT_NE(properties.find("_NET_WM_WINDOW_TYPE_NOTIFICATION"), std::string::npos) << properties;
    EXPECT_NE(properties.find("\"vard_notify\", \"vard_notify\""), std::string::npos) << properties;
    const auto place = onDisplay("xwininfo -id " + clicked).text;
    EXPECT_NE(place.find("Corners:  +224+16  -16+16"), std::string::npos) << "top right: " << place;
    EXPECT_EQ(onDisplay("xdotool mousemove --window " + clicked + " 20 20 click 1").status, 0);
    EXPECT_TRUE(gone("Имя \"x\"", 5s));

    EXPECT_TRUE(send(33, "", "a key closes this"));
    EXPECT_EQ(onDisplay("xdotool mousemove --window " + window("Message") + " 20 20 key space").status, 0);
    EXPECT_TRUE(gone("Message", 5s));

    EXPECT_TRUE(gone("Left alone", 20s)) << leftAlone;
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 9s);
    EXPECT_TRUE(reaped("vard_notify")) << shell("ps axf").text;
}

TEST_F(Notify, TheDesktopsNotificationServiceTakesItWhereOneRuns) {
    login();
    const std::string busPath = "/run/user/" + std::to_string(alice.uid()) + "/bus";
    asAlice("dbus-daemon --session --address=unix:path=" + busPath + " --fork");
    ASSERT_TRUE(waitUntil([&] { return exists(busPath); }));
    EXPECT_TRUE(send(33, "Bus only", "this bus would start a notification service if it were asked to"));
    onDisplay("xdotool mousemove --window " + window("Bus only") + " 20 20 click 1");

    asAlice("stdbuf -oL dunst -print >/tmp/dunst.log 2>&1 </dev/null &");
    asAlice("stdbuf -oL dbus-monitor interface=org.freedesktop.Notifications >/tmp/monitor.log 2>&1 </dev/null &");
    ASSERT_TRUE(waitUntil([&] {
        return !readFile("/tmp/monitor.log").empty() &&
               asAlice("busctl --user --acquired list").text.find("org.freedesktop.Notifications") != std::string::npos;
    }));

    const std::string header = "Say \"hi\" \\ $(x)";
    EXPECT_TRUE(send(33, header, "<b>Имя</b> & co\nline", 255));
    EXPECT_TRUE(waitUntil([&] { return readFile("/tmp/dunst.log").find("CRITICAL") != std::string::npos; }))
        << readFile("/tmp/dunst.log");
    const auto call = readFile("/tmp/monitor.log");
    EXPECT_NE(call.find("string \"" + header + "\""), std::string::npos) << call;
    EXPECT_NE(call.find("string \"&lt;b&gt;Имя&lt;/b&gt; &amp; co\nline\""), std::string::npos) << call;
    EXPECT_NE(call.find("byte 2\n"), std::string::npos) << call;
    EXPECT_TRUE(reaped("vard_notify"));
    EXPECT_NE(onDisplay("xdotool search --name '^Say '").status, 0) << "no window beside it";

    for (const std::string silent : {"dunst", "dbus-daemon"}) {
        mustRun("pkill -STOP -u alice " + silent);
        EXPECT_TRUE(send(33, "Silent " + silent, "the window comes nevertheless"));
        window("Silent " + silent);
    }
}

TEST_F(Notify, TheProgramGetsSixArgumentsExactly) {
    auto config = testConfig();
    const auto seen = alice.home() + "/seen";
    config["helper:notification"] = alice.script("record", "printf '%s|' $# \"$@\" >>" + seen);
    login(config);
    EXPECT_FALSE(send(34, "nobody", "hears this"));
    EXPECT_TRUE(journal.waitFor("vardSendNotify: session id: 0x00000022, level: 1, message: `hears this'"));
    std::string expected;
    const auto recorded = [&](const std::string& words) {
        expected += words;
        EXPECT_TRUE(waitUntil([&] { return readFile(seen) == expected; })) << readFile(seen);
    };
    EXPECT_TRUE(send(33, "say \"hi\" \\ $(x)", "one\ntwo `id` $HOME %s", 255));
    recorded("6|--header|\"say \\\"hi\\\" \\\\ $(x)\"|--message|\"one\ntwo `id` $HOME %s\"|--level|255|");
    EXPECT_TRUE(send(33, "", "--level 7", 0));
    recorded("6|--header|\"\"|--message|\"--level 7\"|--level|0|");
    EXPECT_TRUE(reaped("record"));
}

TEST_F(Notify, ABrokenProgramChangesNoAnswer) {
    auto config = testConfig();
    config["helper:notification"] = "/nowhere/notify";
    login(config);
    EXPECT_TRUE(send(33, "header", "message"));
    EXPECT_TRUE(journal.waitFor("runChildProcess: program not found: /nowhere/notify"));

    config["helper:notification"] =
        alice.script("hang", "printf '%s|' \"$@\" >" + alice.home() + "/seen; exec sleep 98765");
    ASSERT_TRUE(reload(config));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(bus.call("proxyClientConnected", "us", 33U, "192.0.2.7").ok());
    EXPECT_TRUE(waitUntil([] { return processes("sleep 98765", "alice").size() == 1; }));
    EXPECT_TRUE(bus.call("proxyClientConnected", "us", 33U, "192.0.2.8").ok());
    EXPECT_TRUE(send(33, "h", "m"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s) << "the programs never end";
    EXPECT_TRUE(waitUntil([] { return processes("sleep 98765", "alice").size() == 3; }));
    EXPECT_EQ(service->stop(), 0);
    EXPECT_TRUE(processes("sleep 98765").empty());
}

TEST_F(Notify, AnAttemptToConnectIsShown) {
    auto config = testConfig();
    const auto seen = alice.home() + "/seen";
    config["helper:notification"] = alice.script("record", "printf '%s|' \"$@\" >" + seen);
    login(config);
    EXPECT_TRUE(bus.call("proxyClientConnected", "us", 33U, "192.0.2.7").ok());
    EXPECT_TRUE(waitUntil([&] {
        return readFile(seen) ==
               "--header|\"\"|--message|\"There was an attempt to connect from a remote address: "
               "192.0.2.7\"|--level|0|";
    })) << readFile(seen);
}

TEST_F(Notify, TheProgramSaysWhyItShowsNothing) {
    const std::string good = std::string(notifier) + " --header '\"h\"' --message '\"m\"' --level ";
    const auto bad = shell(good + "256");
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.text, "vard_notify: the level is no number from 0 to 255 (--help shows the usage)\n");
    const auto blind = shell("unset DISPLAY; " + good + "1");
    EXPECT_EQ(blind.status, 1);
    EXPECT_EQ(blind.text, "vard_notify: DISPLAY is not set\n");
    EXPECT_EQ(shell(good + "1 DISPLAY=:76").status, 2) << "one argument more";
    EXPECT_EQ(shell("DISPLAY=:76 " + good + "1").text, "vard_notify: cannot connect to display :76\n");
    EXPECT_EQ(shell(std::string(notifier) + " --help").status, 0);
}

} // namespace
