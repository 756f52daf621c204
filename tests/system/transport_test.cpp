// The handshake with the proxy and the transports, as a proxy and a transport see it.
#include "service.h"

#include <csignal>
#include <filesystem>

namespace {

using namespace Test;
using Found = std::vector<Signal>;

/// A process that stands for a transport, or for a bystander; it is not the test's child, so nobody need reap it.
int spawn() { return std::stoi(mustRun("sleep 100000 >/dev/null 2>&1 & echo $!")); }

bool alive(int pid) { return ::kill(pid, 0) == 0; }

class Transport : public ServiceTest {
protected:
    Transport() {
        auto config = testConfig();
        config["helper:notification"] = "/bin/true";
        start(config);
        signals = std::make_unique<Signals>();
    }

    void login() {
        ASSERT_EQ(bus.login("alice"), 33);
        EXPECT_EQ(signals->upTo("signalProxyAllowConnection"),
                  (Found{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    }
    void connect(uint32_t pid, const char* address = "10.1.2.3") {
        EXPECT_TRUE(bus.call("proxySessionConnected", "uus", 33U, pid, address).ok());
        EXPECT_EQ(signals->upTo("signalSessionConnected"), (Found{{"signalSessionConnected", {33}}}));
    }
    void expectDisconnected() {
        EXPECT_EQ(signals->upTo("signalSessionDisconnected"), (Found{{"signalSessionDisconnected", {33}}}));
        EXPECT_EQ(info(33)["pid3"], 0);
    }

    std::unique_ptr<Signals> signals;
};

TEST_F(Transport, ProxyIsToldWhomToAdmit) {
    login();
    login(); // the same session once more, and the proxy is told once more
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 7U).number, 1);
    EXPECT_EQ(signals->upTo("signalProxyAllowConnection"),
              (Found{{"signalProxyListenTimeout", {7}}, {"signalProxyAllowConnection", {33, alice.uid()}}}));
    bus.call("proxyListenTimeout", "u", 9U);
    EXPECT_EQ(signals->upTo("signalProxyListenTimeout"), (Found{{"signalProxyListenTimeout", {9}}}));

    bus.call("proxyListenStarted", "ub", 33U, 0);
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 1) << "that the proxy reported counts";
    EXPECT_TRUE(journal.waitFor("proxyListenStarted: session id: 0x00000021, status: failed"));
    bus.call("proxyClientConnected", "us", 33U, "10.1.2.3");
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 0);
    EXPECT_TRUE(
        journal.waitFor("vardSendNotify: session id: 0x00000021, level: 0, message: `There was an attempt to "
                        "connect from a remote address: 10.1.2.3'"));
}

TEST_F(Transport, EveryTurnOfAConnectionIsToldAndRecorded) {
    login();
    const int first = spawn();
    connect(static_cast<uint32_t>(first));
    EXPECT_EQ(info(33)["pid3"], first);
    EXPECT_EQ(info(33)["remoteaddr"], "10.1.2.3");
    EXPECT_EQ(bus.call("zabbixSessionsOnline").number, 1);
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 7U).number, 0);
    EXPECT_TRUE(journal.waitFor("vardConnectRdpTransport: transport also running, session id: 0x00000021, pid: " +
                                std::to_string(first)));
    bus.call("vardRdpSecurityPolicy", "ubbb", 33U, 0, 1, 0);
    const auto session = info(33);
    EXPECT_EQ(session["sec:nla"], false);
    EXPECT_EQ(session["sec:tls"], true);
    EXPECT_EQ(session["sec:rdp"], false);
    EXPECT_EQ(session["sec:auth"], true);

    const int second = spawn(); // replaces the first, which is told to end
    connect(static_cast<uint32_t>(second), "10.9.9.9");
    EXPECT_TRUE(waitUntil([&] { return !alive(first); }));
    ::kill(second, SIGKILL); // lost
    expectDisconnected();
    EXPECT_EQ(bus.call("zabbixSessionsOnline").number, 0);
    EXPECT_EQ(bus.call("zabbixSessionsTotal").number, 1) << "a desktop survives the loss of its client";
    EXPECT_TRUE(journal.audit("VARD:SessionDisconnect=\"alice\"", "addr=10.9.9.9 terminal=:33 res=success"));

    const int third = spawn();
    connect(static_cast<uint32_t>(third));
    EXPECT_EQ(bus.call("vardDisconnect", "u", 33U).number, 1);
    EXPECT_EQ(info(33)["remoteaddr"], "");
    expectDisconnected();
    EXPECT_FALSE(alive(third));
    EXPECT_EQ(bus.call("vardDisconnect", "u", 33U).number, 0) << "nobody is connected";

    const int fourth = spawn();
    connect(static_cast<uint32_t>(fourth));
    ::kill(info(33)["pid1"].asInt(), SIGKILL); // the X server goes, and the session with it
    EXPECT_EQ(signals->upTo("signalSessionShutdown"),
              (Found{{"signalSessionDisconnected", {33}}, {"signalSessionShutdown", {33}}}));
    EXPECT_TRUE(waitUntil([&] { return !alive(fourth); }));
    EXPECT_TRUE(journal.audit("VARD:SessionLogout=\"alice\"", "addr=10.1.2.3 terminal=:33 res=success"));

    login();
    const int fifth = spawn();
    connect(static_cast<uint32_t>(fifth));
    EXPECT_EQ(bus.call("busSessionShutdown", "s", "alice").number, 1);
    signals->upTo("signalSessionShutdown");
    login();
    bus.call("busServiceShutdown");
    EXPECT_EQ(signals->upTo("signalVardStopped"), (Found{{"signalVardStopped", {}}}));
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(waitUntil([&] { return !alive(fifth); }));
}

TEST_F(Transport, NothingButTheTransportIsEverSignalled) {
    login();
    const int bystander = spawn();
    connect(0);
    EXPECT_EQ(info(33)["pid3"], 0);
    const int transport = spawn();
    connect(static_cast<uint32_t>(transport));
    const auto server = static_cast<uint32_t>(info(33)["pid1"].asUInt());
    for (const uint32_t pid : {4294967295U, 2147483648U, 1U, static_cast<uint32_t>(service->pid()), server}) {
        EXPECT_TRUE(bus.call("proxySessionConnected", "uus", 33U, pid, "10.6.6.6").ok());
        EXPECT_TRUE(journal.waitFor("proxySessionConnected: transport pid refused: " + std::to_string(pid)));
    }
    EXPECT_EQ(info(33)["pid3"], transport) << "a refused report changes nothing";
    EXPECT_TRUE(alive(transport));

    const int dead = spawn();
    ::kill(dead, SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return !alive(dead); }));
    connect(static_cast<uint32_t>(dead));
    expectDisconnected();

    // The number of a transport that has gone is given to a stranger.
    const int gone = spawn();
    connect(static_cast<uint32_t>(gone));
    ::kill(gone, SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return !alive(gone); }));
    const int stranger = std::stoi(mustRun("exec 9>/proc/sys/kernel/ns_last_pid; echo " + std::to_string(gone - 1) +
                                           " >&9; sleep 100000 >/dev/null 2>&1 & echo $!"));
    ASSERT_EQ(stranger, gone);
    bus.call("vardDisconnect", "u", 33U);
    expectDisconnected();
    bus.call("vardSessionShutdown", "u", 33U);
    signals->upTo("signalSessionShutdown");
    EXPECT_TRUE(alive(stranger));
    EXPECT_TRUE(alive(bystander));
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

} // namespace
