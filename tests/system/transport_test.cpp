// The handshake with the proxy and the transports, as a proxy and a transport see it.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

/// A process that stands for a transport, or for a bystander.
uint32_t spawn(const std::string& before = "") { return static_cast<uint32_t>(launch(before + "sleep 100000")); }

bool alive(uint32_t pid) { return ::kill(static_cast<pid_t>(pid), 0) == 0; }

void killAndWait(uint32_t pid) {
    ::kill(static_cast<pid_t>(pid), SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return !alive(pid); }));
}

class Transport : public ServiceTest {
protected:
    Transport() {
        start(testConfig({{"helper:notification", "/bin/true"}}));
        signals = std::make_unique<Signals>();
    }

    void login() {
        ASSERT_EQ(bus.login("alice"), 33);
        EXPECT_EQ(signals->upTo("signalProxyAllowConnection"),
                  (Heard{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    }
    void connect(uint32_t pid, const char* address = "10.1.2.3") {
        EXPECT_TRUE(bus.call("proxySessionConnected", "uus", 33U, pid, address).ok());
        EXPECT_EQ(signals->upTo("signalSessionConnected"), (Heard{{"signalSessionConnected", {33}}}));
    }
    uint32_t connected() { return info(33)["pid3"].asUInt(); }
    void expectDisconnected() {
        EXPECT_EQ(signals->upTo("signalSessionDisconnected"), (Heard{{"signalSessionDisconnected", {33}}}));
        EXPECT_EQ(connected(), 0U);
    }

    std::unique_ptr<Signals> signals;
};

TEST_F(Transport, ProxyIsToldWhomToAdmit) {
    login();
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 7U).number, 1);
    EXPECT_EQ(signals->upTo("signalProxyAllowConnection"),
              (Heard{{"signalProxyListenTimeout", {7}}, {"signalProxyAllowConnection", {33, alice.uid()}}}));
    bus.call("proxyListenTimeout", "u", 9U);
    EXPECT_EQ(signals->upTo("signalProxyListenTimeout"), (Heard{{"signalProxyListenTimeout", {9}}}));

    bus.call("proxyListenStarted", "ub", 33U, 0);
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 1) << "that the proxy reported counts";
    bus.call("proxyClientConnected", "us", 33U, "10.1.2.3");
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 0);

    bus.call("vardRdpSecurityPolicy", "ubbb", 33U, 0, 1, 0);
    const auto session = info(33);
    EXPECT_TRUE(!session["sec:nla"].asBool() && session["sec:tls"].asBool() && !session["sec:rdp"].asBool());
}

TEST_F(Transport, LongTextsOfCallersAreCut) {
    const std::string filler(300000, 'a');
    bus.call("busSessionDomainRequest", "sssyqq", "alice", filler.c_str(), "secret", 24, 640, 480);
    bus.call("proxySessionConnected", "uus", 33U, 0U, filler.c_str());
    EXPECT_EQ(info(33)["domain"], filler.substr(0, 255));
    EXPECT_EQ(info(33)["remoteaddr"], filler.substr(0, 64));
}

TEST_F(Transport, ReplacedLostAndSentAwayIsToldAndRecorded) {
    login();
    const auto first = spawn();
    connect(first);
    EXPECT_EQ(connected(), first);
    EXPECT_EQ(bus.call("zabbixSessionsOnline").number, 1);
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 7U).number, 0);
    EXPECT_TRUE(journal.waitFor("vardConnectRdpTransport: transport also running, session id: 0x00000021, pid: " +
                                std::to_string(first)));

    const auto second = spawn();
    connect(second, "10.9.9.9");
    EXPECT_TRUE(waitUntil([&] { return !alive(first); })) << "it is replaced";
    killAndWait(second);
    expectDisconnected();
    EXPECT_EQ(bus.call("zabbixSessionsOnline").number, 0);

    const auto third = spawn();
    connect(third);
    EXPECT_EQ(bus.call("vardDisconnect", "u", 33U).number, 1);
    EXPECT_EQ(info(33)["remoteaddr"], "");
    expectDisconnected();
    EXPECT_FALSE(alive(third));
    EXPECT_EQ(bus.call("vardDisconnect", "u", 33U).number, 0) << "nobody is connected";

    const auto fourth = spawn();
    connect(fourth);
    ::kill(info(33)["pid1"].asInt(), SIGKILL);
    EXPECT_EQ(signals->upTo("signalSessionShutdown"),
              (Heard{{"signalSessionDisconnected", {33}}, {"signalSessionShutdown", {33}}}));
    EXPECT_TRUE(waitUntil([&] { return !alive(fourth); }));

    const auto sid = static_cast<uint32_t>(bus.login("alice"));
    const auto fifth = spawn();
    bus.call("proxySessionConnected", "uus", sid, fifth, "10.1.2.3");
    service->stop();
    EXPECT_TRUE(waitUntil([&] { return !alive(fifth); }));
}

TEST_F(Transport, EveryLoginAndItsEndIsRecordedOnce) {
    const Account user("audited" + mustRun("od -An -N4 -tx4 /dev/urandom | tr -d ' \\n'"));
    mustRun("chage -E 1 " + user.name());
    EXPECT_EQ(bus.login(user.name()), -1);
    mustRun("chage -E -1 " + user.name());
    ASSERT_EQ(bus.login(user.name()), 33);
    EXPECT_EQ(bus.login(user.name()), 33); // again is no login
    for (int i = 0; i < 2; ++i) {
        signals->upTo("signalProxyAllowConnection");
    }
    const auto first = spawn();
    connect(first, "10.9.9.9");
    killAndWait(first);
    expectDisconnected();
    const auto second = spawn();
    connect(second, "10.9.9.9 terminal=:99 res=failed");
    killAndWait(second);
    expectDisconnected();
    connect(spawn(), "2001:db8::7");
    bus.call("vardSessionShutdown", "u", 33U);
    const auto record = [&](const std::string& what, const std::string& address, const std::string& result) {
        return "VARD:" + what + "=\"" + user.name() + "\" exe=\"/usr/bin/vard_service\" hostname=? addr=" + address +
               " terminal=:33 res=" + result;
    };
    EXPECT_EQ(journal.audit(user.name(), 5),
              (std::vector<std::string>{record("SessionLogin", "?", "failed"), record("SessionLogin", "?", "success"),
                                        record("SessionDisconnect", "10.9.9.9", "success"),
                                        record("SessionDisconnect", "?", "success"),
                                        record("SessionLogout", "2001:db8::7", "success")}));
}

TEST_F(Transport, NothingButTheTransportIsEverSignalled) {
    login();
    const auto bystander = spawn();
    connect(0);
    EXPECT_EQ(connected(), 0U);
    const auto transport = spawn();
    connect(transport);
    for (const uint32_t pid :
         {4294967295U, 2147483648U, 1U, static_cast<uint32_t>(service->pid()), info(33)["pid1"].asUInt()}) {
        EXPECT_TRUE(bus.call("proxySessionConnected", "uus", 33U, pid, "10.6.6.6").ok());
        EXPECT_TRUE(journal.waitFor("proxySessionConnected: transport pid refused: " + std::to_string(pid)));
    }
    EXPECT_EQ(connected(), transport) << "a refused report changes nothing";
    EXPECT_TRUE(alive(transport));

    const auto dead = spawn();
    killAndWait(dead);
    connect(dead);
    expectDisconnected();

    // The number of a transport that has gone is given to a stranger.
    const auto gone = spawn();
    connect(gone);
    killAndWait(gone);
    const auto stranger = spawn("exec 9>/proc/sys/kernel/ns_last_pid; echo " + std::to_string(gone - 1) + " >&9; ");
    ASSERT_EQ(stranger, gone);
    bus.call("vardDisconnect", "u", 33U);
    expectDisconnected();
    bus.call("vardSessionShutdown", "u", 33U);
    signals->upTo("signalSessionShutdown");
    EXPECT_TRUE(alive(stranger));
    EXPECT_TRUE(alive(bystander));
}

} // namespace
