// A real remote-desktop client, through the reference connector, in a session.
#include "service.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

namespace {

using namespace Test;

const std::string connectorProgram = "/usr/libexec/vard/vard_connector";
const std::string runtime = "/run/vard_connector";

// A process of the test's own, gone with the object.
class Program {
public:
    explicit Program(const std::string& command) : pid_(::fork()) {
        if (pid_ == 0) {
            ::execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~Program() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            wait();
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] int pid() const { return pid_; }
    /// The exit code, or 128 plus the signal.
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    int pid_;
};

class RemoteClient : public ServiceTest {
protected:
    RemoteClient() {
        mustRun("install -d -o vard-connector " + runtime +
                " && install -d -m 700 -o vard-connector /var/lib/vard_connector");
        auto config = testConfig();
        config["session:path"] = alice.script("session", "xsetroot -solid '#336699'\nexec xterm -geometry 20x5+0+0");
        start(config);
        startConnector();
    }

    // As its unit does.
    void startConnector() {
        connector = std::make_unique<Program>("setpriv --reuid vard-connector --regid vard-connector --init-groups " +
                                              connectorProgram + " --bind 127.0.0.1 --ports 3400-3401");
        ASSERT_TRUE(waitUntil([] { return shell("busctl list | grep -c vard_connector").text == "1\n"; }));
    }

    void logIn() {
        ASSERT_EQ(bus.login("alice"), 33);
        ASSERT_TRUE(listening());
    }
    static bool listening() {
        return waitUntil([] { return readFile(runtime + "/33.port") == "3400\n"; });
    }

    static std::string client(const std::string& more) {
        return "env DISPLAY=:60 HOME=/tmp timeout 100 xfreerdp /v:127.0.0.1:3400 /u:alice /cert:ignore /size:640x480 " +
               more + " >/tmp/client.log 2>&1";
    }

    // What the client shows in the middle, as three numbers; the codec blurs them a little.
    static bool showsTheSession() {
        std::istringstream colour(shell("DISPLAY=:60 import -window root png:- 2>/dev/null | convert - -format "
                                        "'%[fx:round(255*p{400,300}.r)] %[fx:round(255*p{400,300}.g)] "
                                        "%[fx:round(255*p{400,300}.b)]' info:")
                                      .text);
        const std::vector<int> painted{0x33, 0x66, 0x99};
        return std::ranges::all_of(painted, [&](int expected) {
            int seen = -1000;
            colour >> seen;
            return std::abs(seen - expected) <= 12;
        });
    }

    static std::string terminalWindow() {
        return shell("DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 xwininfo -root -tree | awk '/\"XTerm\"/ {print $1}'")
            .text;
    }

    static std::string filesLeft() { return shell("find " + runtime + " -type f").text; }
    static void expectNoTransport() {
        EXPECT_TRUE(waitUntil([] { return processes("freerdp-shadow-cli").empty() && filesLeft().empty(); }))
            << filesLeft() << shell("ps axf").text;
    }

    Program screen{"Xvfb :60 -screen 0 800x600x24 -nolisten tcp >/dev/null 2>&1"};
    std::unique_ptr<Program> connector;
    Signals signals;
};

TEST_F(RemoteClient, SeesTheSessionWithTheRightPasswordAlone) {
    logIn();
    EXPECT_EQ(
        shell("stat -c '%a %U' " + runtime + "/private " + runtime + "/private/33.sam " + runtime + "/33.port").text,
        "700 vard-connector\n600 vard-connector\n644 vard-connector\n");
    for (const char* wrong : {"/p:wrong", "/p:secret /u:root", "/p:secret /sec:tls", "/p:secret /sec:rdp"}) {
        EXPECT_NE(Program(client(wrong)).wait(), 0) << wrong;
        EXPECT_EQ(info(33)["pid3"].asInt(), 0) << wrong;
    }
    EXPECT_TRUE(journal.waitFor("proxyClientConnected: session id: 0x00000021, ipaddr: 127.0.0.1"));
    EXPECT_FALSE(showsTheSession());

    Program viewer(client("/p:secret"));
    EXPECT_EQ(
        signals.upTo("signalSessionConnected"),
        (std::vector<Signal>{{"signalProxyAllowConnection", {33, alice.uid()}}, {"signalSessionConnected", {33}}}));
    EXPECT_TRUE(waitUntil(showsTheSession)) << readFile("/tmp/client.log");
    EXPECT_TRUE(waitUntil([&] { return !info(33)["sec:tls"].asBool(); }));
    const auto session = info(33);
    EXPECT_EQ(session["remoteaddr"], "127.0.0.1");
    EXPECT_EQ(std::vector<int>{session["pid3"].asInt()}, processes("freerdp-shadow-cli", "vard-connector"));
    EXPECT_TRUE(session["sec:nla"].asBool());

    // The keys and the pointer go the other way.
    EXPECT_TRUE(waitUntil([&] {
        shell(
            "export DISPLAY=:60; xdotool mousemove 60 60 sleep 0.5 type --delay 50 'touch typed' && "
            "xdotool key Return");
        return waitUntil([&] { return exists(alice.home() + "/typed"); }, std::chrono::seconds(2));
    }));
}

TEST_F(RemoteClient, IsDisconnectedAndFindsTheSessionAgain) {
    logIn();
    ASSERT_TRUE(waitUntil([] { return !terminalWindow().empty(); }));
    const auto window = terminalWindow();
    auto viewer = std::make_unique<Program>(client("/p:secret"));
    signals.upTo("signalSessionConnected");
    ASSERT_TRUE(waitUntil(showsTheSession));
    const int transport = info(33)["pid3"].asInt();

    EXPECT_EQ(mustRun("vardctl disconnect 33"), "");
    EXPECT_NE(viewer->wait(), 124) << "the client was not ended";
    EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (std::vector<Signal>{{"signalSessionDisconnected", {33}}}));
    ASSERT_TRUE(listening());

    logIn();
    viewer = std::make_unique<Program>(client("/p:secret"));
    EXPECT_EQ(
        signals.upTo("signalSessionConnected"),
        (std::vector<Signal>{{"signalProxyAllowConnection", {33, alice.uid()}}, {"signalSessionConnected", {33}}}));
    EXPECT_TRUE(waitUntil(showsTheSession)) << readFile("/tmp/client.log");
    EXPECT_NE(info(33)["pid3"].asInt(), transport);
    EXPECT_EQ(terminalWindow(), window);

    // The client leaves by itself: a transport that has served one is replaced.
    const int second = info(33)["pid3"].asInt();
    viewer.reset();
    EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (std::vector<Signal>{{"signalSessionDisconnected", {33}}}));
    ASSERT_TRUE(listening());
    EXPECT_THAT(processes("freerdp-shadow-cli"), testing::Not(testing::Contains(second)));
    EXPECT_EQ(info(33)["pid3"].asInt(), 0);
}

TEST_F(RemoteClient, EndsWithTheSessionAndNothingIsLeft) {
    logIn();
    Program viewer(client("/p:secret"));
    signals.upTo("signalSessionConnected");
    EXPECT_EQ(bus.call("vardSessionShutdown", "u", 33U).number, 1);
    EXPECT_NE(viewer.wait(), 124);
    EXPECT_EQ(signals.upTo("signalSessionShutdown").back(), (Signal{"signalSessionShutdown", {33}}));
    expectNoTransport();

    logIn(); // the next session of that number
    EXPECT_EQ(service->stop(), 0);
    expectNoTransport();
    EXPECT_EQ(::kill(connector->pid(), 0), 0) << "it waits for the next service";
}

TEST_F(RemoteClient, NoTransportOutlivesTheConnector) {
    logIn();
    ::kill(connector->pid(), SIGTERM);
    EXPECT_EQ(connector->wait(), 0);
    EXPECT_TRUE(processes("freerdp-shadow-cli").empty());
    EXPECT_EQ(filesLeft(), "");

    startConnector();
    logIn();
    ::kill(connector->pid(), SIGKILL);
    connector->wait();
    EXPECT_TRUE(waitUntil([] { return processes("freerdp-shadow-cli").empty(); }));
    startConnector();
    EXPECT_EQ(filesLeft(), "") << "what the killed one left";
}

TEST_F(RemoteClient, IsWaitedForWithinTheLimitAndOnStrangersWordNotLess) {
    logIn();
    // A stranger sends the service's signal straight to the connector, under a policy that lets him.
    writeFile(
        "/etc/dbus-1/system.d/loose.conf",
        "<busconfig><policy context=\"mandatory\"><allow send_interface=\"ru.korvex.vard\"/></policy></busconfig>");
    mustRun("busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig");
    const auto name = mustRun("busctl list --no-legend | awk '/vard_connector/ {printf \"%s\", $1}'");
    mustRun("setpriv --reuid alice --clear-groups dbus-send --system --type=signal --dest=" + name +
            " /ru/korvex/vard ru.korvex.vard.signalVardStopped");
    EXPECT_TRUE(waitUntil([&] {
        const auto entries = journal.entries();
        return std::ranges::any_of(entries, [](const auto& entry) {
            const auto message = entry.find("MESSAGE");
            return message != entry.end() && message->second.find("a signal of a stranger") != std::string::npos;
        });
    }));
    EXPECT_EQ(processes("freerdp-shadow-cli").size(), 1U);

    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 1U).number, 1);
    expectNoTransport();
    logIn();
    EXPECT_TRUE(bus.call("proxyListenTimeout", "u", 1U).ok());
    expectNoTransport();
}

} // namespace
