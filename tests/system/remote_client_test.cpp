// A real remote-desktop client, through the reference connector, in a session.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;
using namespace std::chrono_literals;

const std::string runtime = "/run/vard_connector";

bool gone(int pid) {
    return waitUntil([pid] { return ::kill(pid, 0) != 0; });
}

class RemoteClient : public ServiceTest {
protected:
    RemoteClient() {
        mustRun("install -d -o vard-connector " + runtime +
                " && install -d -m 700 -o vard-connector /var/lib/vard_connector");
        start(testConfig(
            {{"session:path", alice.script("session", "xsetroot -solid '#336699'\nexec xterm -geometry 20x5+0+0")},
             {"display:max", 34}}));
        startConnector();
        logIn();
    }
    ~RemoteClient() override {
        EXPECT_TRUE(waitUntil([] { return shell("pkill -KILL -x 'xfreerdp|vard_connector|Xvfb'").status != 0; }));
    }

    // As its unit does. It takes signals through a descriptor as soon as it hears the bus.
    void startConnector() {
        connector = launch(
            "setpriv --reuid vard-connector --regid vard-connector --init-groups /usr/libexec/vard/vard_connector "
            "--bind 127.0.0.1 --ports 3400-3401");
        ASSERT_TRUE(waitUntil(
            [&] { return shell("ls -l /proc/" + std::to_string(connector) + "/fd | grep signalfd").status == 0; }));
    }
    void logIn() {
        // The one display of the range is taken until the last of an earlier session is gone.
        ASSERT_TRUE(waitUntil([this] { return bus.login("alice") == 33; }));
        ASSERT_TRUE(listening());
    }
    static bool listening() {
        return waitUntil([] { return readFile(runtime + "/33.port") == "3400\n"; });
    }
    static std::string client(const std::string& options) {
        return "env DISPLAY=:60 HOME=/tmp timeout 100 xfreerdp /v:127.0.0.1:3400 /u:alice /cert:ignore /size:640x480 " +
               options;
    }
    void connect() {
        viewer = launch(client("/p:secret"));
        EXPECT_EQ(signals.upTo("signalSessionConnected"),
                  (Heard{{"signalProxyAllowConnection", {33, alice.uid()}}, {"signalSessionConnected", {33}}}));
        EXPECT_TRUE(waitUntil(showsTheSession));
    }
    void expectDisconnected() {
        EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (Heard{{"signalSessionDisconnected", {33}}}));
        ASSERT_TRUE(listening());
    }

    // The colour in the middle of the client; the codec blurs it a little.
    static bool showsTheSession() {
        return shell(
                   "DISPLAY=:60 import -window root png:- 2>/dev/null | convert - -crop 1x1+400+300 -format "
                   "'%[fx:abs(r - 0.2) < 0.05 && abs(g - 0.4) < 0.05 && abs(b - 0.6) < 0.05]' info:")
                   .text == "1";
    }
    static std::string terminalWindow() {
        return shell("DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 xwininfo -root -tree | awk '/\"XTerm\"/ {print $1}'")
            .text;
    }
    static void expectNoTransport() {
        EXPECT_TRUE(waitUntil([] {
            return processes("freerdp-shadow-cli").empty() && shell("find " + runtime + " -type f").text.empty();
        })) << shell("ps axf; find " + runtime).text;
    }

    const int screen = launch("Xvfb :60 -screen 0 800x600x24 -nolisten tcp");
    int connector = 0;
    int viewer = 0;
    Signals signals;
};

TEST_F(RemoteClient, SeesTheSessionWithTheRightPasswordAlone) {
    EXPECT_EQ(
        shell("stat -c '%a %U' " + runtime + "/private " + runtime + "/private/33.sam " + runtime + "/33.port").text,
        "700 vard-connector\n600 vard-connector\n644 vard-connector\n");
    constexpr int noConnection = 133;
    constexpr int logonFailed = 147;
    const std::map<std::string, int> refused{{"/p:wrong", logonFailed},
                                             {"/p:secret /u:root", logonFailed},
                                             {"/p:secret /sec:tls", noConnection},
                                             {"/p:secret /sec:rdp", noConnection}};
    for (const auto& [wrong, status] : refused) {
        EXPECT_EQ(shell(client(wrong)).status, status) << wrong;
    }
    EXPECT_TRUE(journal.waitFor("proxyClientConnected: session id: 0x00000021, ipaddr: 127.0.0.1"));
    EXPECT_FALSE(journal.has("proxySessionConnected: session id"));

    connect();
    EXPECT_TRUE(waitUntil([&] { return !info(33)["sec:tls"].asBool(); }));
    const auto session = info(33);
    EXPECT_TRUE(session["sec:nla"].asBool());
    EXPECT_EQ(session["remoteaddr"], "127.0.0.1");

    // A second client sees the same screen, and stays when the first one leaves.
    const int second = launch(client("/p:secret"));
    EXPECT_TRUE(waitUntil([&] { return journal.count(", connected: 127.0.0.1", "vard_connector") == 2; }));
    ::kill(viewer, SIGTERM);
    EXPECT_TRUE(gone(viewer));
    EXPECT_FALSE(waitUntil([&] { return ::kill(second, 0) != 0 || info(33)["pid3"] != session["pid3"]; }, 3s));
    EXPECT_EQ(journal.count("proxySessionConnected: session id"), 1U) << "the first would have been sent away";
    ::kill(second, SIGTERM);
    expectDisconnected();
}

TEST_F(RemoteClient, IsDisconnectedAndFindsTheSessionAgain) {
    ASSERT_TRUE(waitUntil([] { return !terminalWindow().empty(); }));
    const auto window = terminalWindow();
    connect();
    const int transport = info(33)["pid3"].asInt();
    EXPECT_EQ(mustRun("vardctl disconnect 33"), "");
    EXPECT_TRUE(gone(viewer));
    expectDisconnected();

    logIn();
    connect();
    EXPECT_NE(info(33)["pid3"].asInt(), transport);
    EXPECT_EQ(terminalWindow(), window);

    // The client leaves by itself: a transport that has served one is replaced.
    const int second = info(33)["pid3"].asInt();
    ::kill(viewer, SIGTERM);
    expectDisconnected();
    EXPECT_TRUE(gone(second));
    EXPECT_EQ(info(33)["pid3"].asInt(), 0);
}

TEST_F(RemoteClient, NoTransportOutlivesItsSessionTheServiceOrTheConnector) {
    connect();
    EXPECT_EQ(bus.call("vardSessionShutdown", "u", 33U).number, 1);
    EXPECT_TRUE(gone(viewer));
    EXPECT_EQ(signals.upTo("signalSessionShutdown").back(), (Signal{"signalSessionShutdown", {33}}));
    expectNoTransport();

    logIn(); // the next session of that number
    ::kill(connector, SIGTERM);
    EXPECT_TRUE(gone(connector));
    expectNoTransport();

    startConnector();
    logIn();
    ::kill(connector, SIGKILL);
    EXPECT_TRUE(gone(connector));
    startConnector(); // removes what the killed one left
    expectNoTransport();

    logIn();
    service->stop();
    expectNoTransport();
    EXPECT_EQ(::kill(connector, 0), 0) << "it waits for the next service";
}

TEST_F(RemoteClient, IsWaitedForWithinTheLimitAndOnStrangersWordNotLess) {
    // A stranger sends the service's signal straight to the connector, under a policy that lets him.
    const LoosePolicy loose;
    const auto name = mustRun("busctl list --no-legend | awk '/vard_connector/ {printf \"%s\", $1}'");
    mustRun("setpriv --reuid alice --clear-groups dbus-send --system --type=signal --dest=" + name +
            " /ru/korvex/vard ru.korvex.vard.signalVardStopped");
    EXPECT_TRUE(journal.waitFor("a signal of a stranger", "vard_connector"));
    EXPECT_EQ(processes("freerdp-shadow-cli").size(), 1U);

    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 1U).number, 1);
    expectNoTransport();
    logIn();
    EXPECT_TRUE(bus.call("proxyListenTimeout", "u", 1U).ok());
    expectNoTransport();
}

} // namespace
