// Notices to users: what the service starts in a session, and what the user then sees.
#include "service.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <sstream>
#include <thread>

namespace {

using namespace Test;
using namespace std::chrono_literals;
using testing::HasSubstr;

const std::string notifier = "/usr/libexec/vard/vard_notify";

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
    /// What ends a critical notice; it would stay for 30 seconds.
    static void closeBy(const std::string& action, const std::string& title) {
        EXPECT_EQ(onDisplay("xdotool mousemove --window " + window(title) + " 20 20 " + action).status, 0);
        EXPECT_TRUE(waitUntil([&] { return onDisplay("xdotool search --name '^" + title + "$'").status != 0; }, 20s));
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
    EXPECT_THAT(onDisplay("xprop -id " + leftAlone).text, HasSubstr("_NET_WM_WINDOW_TYPE_NOTIFICATION"));
    EXPECT_THAT(onDisplay("xwininfo -id " + leftAlone).text, HasSubstr("Corners:  +224+16  -16+16")) << "top right";

    EXPECT_TRUE(send(33, "Имя \"x\"", "Перезагрузка <b>", 2));
    closeBy("click 1", "Имя \"x\"");
    EXPECT_TRUE(send(33, "", "a key closes this", 2));
    closeBy("key space", "Message");

    EXPECT_TRUE(waitUntil([] { return processes(notifier).empty(); }));
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 9s);
}

TEST_F(Notify, NoticesThatComeTogetherLieBelowEachOtherOnTheScreen) {
    login();
    const int server = info(33)["pid1"].asInt();
    ::kill(server, SIGSTOP); // it will hear of all of them at once
    for (const std::string title : {"One", "Two", "Three", "Four", "Five"}) {
        EXPECT_TRUE(send(33, title, "which comes first is not known", 2));
    }
    EXPECT_TRUE(waitUntil([&] { return processes(notifier).size() == 5; }));
    ::kill(server, SIGCONT);
    std::string places; // first row and height of each, from above
    EXPECT_TRUE(waitUntil([&] {
        places = onDisplay(
                     "xdotool search --onlyvisible --name '^(One|Two|Three|Four|Five)$' getwindowgeometry "
                     "--shell %@ | sed -n 's/^Y=//p; s/^HEIGHT=//p' | paste - - | sort -n")
                     .text;
        return std::ranges::count(places, '\n') == 5;
    }));
    std::istringstream rows(places);
    int end = 0;
    for (int top = 0, height = 0; rows >> top >> height; end = top + height) {
        EXPECT_GT(top, end) << places;
    }
    EXPECT_LT(end, 480);
    EXPECT_TRUE(send(33, "Long", std::string(4096, 'x'), 2));
    EXPECT_THAT(onDisplay("xwininfo -id " + window("Long")).text, HasSubstr("upper-left Y:  16")) << "no room below";
}

TEST_F(Notify, TheDesktopsNotificationServiceTakesItWhereOneRuns) {
    login();
    const std::string busPath = "/run/user/" + std::to_string(alice.uid()) + "/bus";
    asAlice("dbus-daemon --session --address=unix:path=" + busPath + " --fork");
    ASSERT_TRUE(waitUntil([&] { return exists(busPath); }));
    EXPECT_TRUE(send(33, "Bus only", "this bus would start a notification service if it were asked to", 2));
    closeBy("click 1", "Bus only");

    asAlice("dunst >/dev/null 2>&1 </dev/null &");
    asAlice("stdbuf -oL dbus-monitor interface=org.freedesktop.Notifications >/tmp/monitor.log 2>&1 </dev/null &");
    ASSERT_TRUE(waitUntil([&] {
        return !readFile("/tmp/monitor.log").empty() &&
               asAlice("busctl --user --acquired list").text.find("org.freedesktop.Notifications") != std::string::npos;
    }));
    const std::string header = "Say \"hi\" \\ $(x)";
    EXPECT_TRUE(send(33, header, "<b>Имя</b> & co\nline", 255));
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/monitor.log").find("byte 2\n") != std::string::npos; }));
    const auto call = readFile("/tmp/monitor.log");
    EXPECT_THAT(call, HasSubstr("string \"" + header + "\""));
    EXPECT_THAT(call, HasSubstr("string \"&lt;b&gt;Имя&lt;/b&gt; &amp; co\nline\""));
    EXPECT_TRUE(waitUntil([] { return processes(notifier).empty(); }, 20s)) << "no window beside it";

    for (const std::string silent : {"dunst", "dbus-daemon"}) {
        mustRun("pkill -STOP -u alice " + silent);
        EXPECT_TRUE(send(33, "Silent " + silent, "the window comes nevertheless"));
        window("Silent " + silent);
    }
}

TEST_F(Notify, TheProgramGetsSixArgumentsExactly) {
    const auto seen = alice.home() + "/seen";
    login(testConfig({{"helper:notification", alice.script("record", "printf '%s|' $# \"$@\" >>" + seen)}}));
    EXPECT_FALSE(send(34, "nobody", "hears this"));
    EXPECT_TRUE(journal.waitFor("vardSendNotify: session id: 0x00000022, level: 1, message: `hears this'"));
    std::string expected;
    const auto recorded = [&](const std::string& words) {
        expected += words;
        EXPECT_TRUE(waitUntil([&] { return readFile(seen) == expected; })) << readFile(seen);
    };
    EXPECT_TRUE(send(33, "say \"hi\" \\ $(x)", "one\ntwo `id` $HOME %s", 255));
    recorded("6|--header|\"say \\\"hi\\\" \\\\ $(x)\"|--message|\"one\ntwo `id` $HOME %s\"|--level|255|");
    EXPECT_TRUE(bus.call("proxyClientConnected", "us", 33U, "192.0.2.7").ok());
    recorded(
        "6|--header|\"\"|--message|\"There was an attempt to connect from a remote address: 192.0.2.7\"|--level|0|");
    const std::string filler(300000, 'a');
    EXPECT_TRUE(send(33, filler, filler, 2));
    recorded("6|--header|\"" + filler.substr(0, 256) + "\"|--message|\"" + filler.substr(0, 4096) + "\"|--level|2|");
}

TEST_F(Notify, HangingProgramsChangeNoAnswer) {
    const auto program = alice.script("hang", "exec sleep 98765");
    login(testConfig({{"helper:notification", program}}));
    const std::string dropped = "vardSendNotify: too many notices at once, session id: 0x00000021";
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(bus.call("proxyClientConnected", "us", 33U, "192.0.2.7").ok());
    }
    EXPECT_TRUE(waitUntil([&] { return journal.count(dropped) == 16; }));
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(send(33, "header", "message"));
    }
    EXPECT_TRUE(waitUntil([] { return processes("sleep 98765", "alice").size() == 4 + 12; }));
    EXPECT_EQ(journal.count(dropped), 16U + 8U);
    service->stop();
    EXPECT_TRUE(processes("sleep 98765").empty());
}

// A directory service that does not answer: here the file of the accounts is a pipe that nobody writes to.
TEST_F(Notify, ALookUpThatHangsDoesNotKeepTheEndsOfSessionsFromBeingSeen) {
    login();
    const int server = info(33)["pid1"].asInt();
    Signals signals;
    mustRun("cd /etc && cp -p passwd passwd.real && mkfifo passwd.pipe && ln -f passwd.pipe passwd");
    bus.call("proxyClientConnected", "us", 33U, "192.0.2.7");
    EXPECT_TRUE(journal.waitFor("vardSendNotify: session id: 0x00000021, level: 0"));
    std::this_thread::sleep_for(200ms); // the look-up is the next that it does
    ::kill(server, SIGKILL);
    EXPECT_NO_THROW(signals.upTo("signalSessionShutdown"));
    mustRun("mv /etc/passwd.real /etc/passwd");
    writeFile("/etc/passwd.pipe", ""); // whoever waits there reads nothing
}

} // namespace
