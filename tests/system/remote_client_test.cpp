// A real remote-desktop client, through the reference connector, in a session.
#include "service.h"

#include <algorithm>
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
        writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
        mustRun("install -d -o vard-connector " + runtime +
                " && install -d -m 700 -o vard-connector /var/lib/vard_connector");
        start(testConfig(
            {{"session:path", alice.script("session",
                                           "xsetroot -solid '#336699'\n" // and something that moves
                                           "exec xterm -geometry 20x5+0+0 -e 'while date +%N; do sleep 0.1; done'")},
             {"display:max", 35}}));
        startConnector();
        logIn();
    }
    ~RemoteClient() override {
        EXPECT_TRUE(waitUntil([] { return shell("pkill -KILL -x 'xfreerdp|vard_connector|Xvfb'").status != 0; }));
        shell("chown -R vard-connector /var/lib/vard_connector");
    }

    // As its unit does.
    void startConnector(const std::string& options = "") {
        Journal fresh;
        connector = launch(
            "setpriv --reuid vard-connector --regid vard-connector --init-groups /usr/libexec/vard/vard_connector " +
            options);
        ASSERT_TRUE(fresh.waitFor("listening on [::]:3389", "vard_connector"));
    }
    // The service's word for it; a client that comes earlier waits.
    void logIn() {
        Journal fresh;
        ASSERT_TRUE(waitUntil([this] { return bus.login("alice") == 33; })) << "an earlier one is still ending";
        ASSERT_TRUE(fresh.waitFor("proxyListenStarted: session id: 0x00000021, status: success"));
    }
    static std::string client(const std::string& options, const std::string& server = "/v:127.0.0.1") {
        return "env DISPLAY=:60 HOME=/tmp timeout 100 xfreerdp " + server +
               " /u:alice /cert:ignore /size:640x480 /p:secret " + options;
    }
    void connect() {
        viewer = launch(client(""));
        EXPECT_EQ(signals.upTo("signalSessionConnected").back(), (Signal{"signalSessionConnected", {33}}));
        EXPECT_TRUE(waitUntil(showsTheSession));
    }
    void expectDisconnected() {
        EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (Heard{{"signalSessionDisconnected", {33}}}));
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
            return processes("freerdp-shadow-cli").empty() && shell("ls -A " + runtime).text.empty();
        })) << shell("ps axf; ls -la " + runtime).text;
    }
    bool connectorSays(const std::string& text) { return journal.waitFor(text, "vard_connector"); }

    const int screen = launch("Xvfb :60 -screen 0 800x600x24 -nolisten tcp");
    int connector = 0;
    int viewer = 0;
    Signals signals;
};

TEST_F(RemoteClient, SeesTheSessionWithTheRightPasswordAlone) {
    EXPECT_EQ(shell("stat -c '%a %U %F' " + runtime + " " + runtime + "/*").text,
              "700 vard-connector directory\n600 vard-connector regular file\n700 vard-connector socket\n");
    constexpr int noConnection = 133;
    constexpr int logonFailed = 147; // or closed meanwhile
    const std::map<std::string, int> refused{
        {"/p:wrong", logonFailed}, {"/u:root", logonFailed}, {"/sec:tls", noConnection}, {"/sec:rdp", noConnection}};
    for (const auto& [wrong, status] : refused) {
        EXPECT_EQ(shell(client(wrong)).status, status) << wrong;
    }
    EXPECT_TRUE(connectorSays("a client was refused: 127.0.0.1"));
    EXPECT_TRUE(connectorSays("no session of user root: log the user in first"));
    EXPECT_TRUE(journal.waitFor("proxyClientConnected: session id: 0x00000021, ipaddr: 127.0.0.1"));
    EXPECT_FALSE(journal.has("proxySessionConnected: session id"));
    const std::string key = "/var/lib/vard_connector/freerdp/shadow/shadow.key";
    mustRun("chown root " + key);
    shell(client(""));
    EXPECT_TRUE(connectorSays("certificate: " + key + " cannot be read"));
    mustRun("chown vard-connector " + key);

    connect();
    EXPECT_TRUE(waitUntil([&] { return !info(33)["sec:tls"].asBool(); }));
    const auto session = info(33);
    EXPECT_TRUE(session["sec:nla"].asBool());
    EXPECT_EQ(session["remoteaddr"], "127.0.0.1");

    // A second client takes the session over, and the first has to go.
    const int second = launch(client("", "/v:[::1]"));
    EXPECT_TRUE(gone(viewer));
    EXPECT_TRUE(waitUntil([&] { return info(33)["remoteaddr"] == "::1"; }));
    EXPECT_NE(info(33)["pid3"], session["pid3"]);
    EXPECT_TRUE(waitUntil(showsTheSession));
    EXPECT_EQ(signals.upTo("signalSessionConnected"), (Heard{{"signalSessionConnected", {33}}}));
    ::kill(second, SIGTERM);
    expectDisconnected();
}

TEST_F(RemoteClient, FindsItsSessionByNameOrTokenAlsoAfterTheConnectorsRestart) {
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "Clock").number, 34);
    ::kill(connector, SIGKILL);
    EXPECT_TRUE(gone(connector));
    startConnector(); // what the killed one left would be in its way

    writeFile("/tmp/clock.rdp", "full address:s:127.0.0.1\nloadbalanceinfo:s:vard-session=34\n");
    const std::vector<std::pair<std::string, uint32_t>> ways{
        {client("'/u:WORK\\alice'"), 33},
        {client("/u:alice@work.example"), 33},
        {client("", "/tmp/clock.rdp"), 34},
        {client("'/load-balance-info:vard-session=33;server=desk1'"), 33}};
    for (const auto& [way, session] : ways) {
        const int pid = launch(way);
        EXPECT_EQ(signals.upTo("signalSessionConnected").back(), (Signal{"signalSessionConnected", {session}})) << way;
        ::kill(pid, SIGTERM);
        signals.upTo("signalSessionDisconnected");
    }
    shell(client("/load-balance-info:vard-session=35"));
    EXPECT_TRUE(connectorSays("no session of number 35"));
}

TEST_F(RemoteClient, HostileOnesAreTurnedAwayInTimeAndCostOthersNothing) {
    // A connection request that names alice, and what comes instead of the rest.
    const std::string request =
        R"(\x03\x00\x00\x2b\x26\xe0\x00\x00\x00\x00\x00Cookie: mstshash=alice\r\n\x01\x00\x08\x00\x03\x00\x00\x00)";
    const auto hostile = [](const std::string& sends, const std::string& server = "127.0.0.1") {
        return launch("bash -c 'exec 3<>/dev/tcp/" + server + "/3389; (" + sends +
                      ") >&3 2>/dev/null & cat <&3 >/dev/null'");
    };
    std::vector<int> pids;
    for (const std::string sends :
         {"sleep 99", "printf 'GET / HTTP/1.0\\r\\n\\r\\n'", R"(printf "\x03\x00\xff\xff"; head -c 65531 /dev/zero)",
          R"(for i in $(seq 99); do printf "\x03"; sleep 1; done)"}) {
        pids.push_back(hostile(sends));
    }
    connect();
    ::kill(viewer, SIGTERM);
    expectDisconnected();
    // One that says no more would keep those at its transport waiting: a stranger from elsewhere has another.
    mustRun("ip address add 192.0.2.7/32 dev lo");
    const auto transports = [] { return processes("freerdp-shadow-cli").size(); };
    pids.push_back(hostile("printf \"" + request + "\"; sleep 99"));
    pids.push_back(hostile("printf \"" + request + "\"; sleep 99", "192.0.2.7"));
    EXPECT_TRUE(waitUntil([&] { return transports() == 2; }));
    for (const std::string said : {"no whole request in time", "no connection request", "not authenticated in time"}) {
        EXPECT_TRUE(connectorSays("client: 127.0.0.1, closed: " + said));
    }
    EXPECT_TRUE(std::ranges::all_of(pids, gone));

    // A flood of one address: few of it are kept, and others find the way in.
    const int flood =
        launch("bash -c 'for i in $(seq 1000); do eval \"exec {fd}<>/dev/tcp/127.0.0.1/3389\" && printf \"" + request +
               "\" >&$fd; done; sleep 99'");
    EXPECT_TRUE(connectorSays("too many connections, turned away"));
    const int other = launch(client("", "/v:192.0.2.7"));
    EXPECT_EQ(signals.upTo("signalSessionConnected").back(), (Signal{"signalSessionConnected", {33}}));
    EXPECT_EQ(info(33)["remoteaddr"], "192.0.2.7");
    ::kill(flood, SIGKILL);
    ::kill(other, SIGTERM);
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
    EXPECT_TRUE(waitUntil([] { return !processes("freerdp-shadow-cli").empty(); })) << "it finds the session";
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
