// Who may call, hear and be the service: the roles of the bus policy, each tried with a real account.
#include "service.h"

#include <algorithm>
#include <map>

namespace {

using namespace Test;

const std::vector<std::string> monitorMethods{"vardStatus", "vardTest", "vardLoadAverage", "zabbixSessionsTotal",
                                              "zabbixSessionsOnline"};

/// Every method with arguments that mean nothing, as busctl takes them.
const std::map<std::string, std::string> calls{{"busSessionRequest", "ssyqq nobody-knows x 24 640 480"},
                                               {"busSessionsInfo", ""},
                                               {"busSessionShutdown", "s nobody-knows"},
                                               {"vardStatus", ""},
                                               {"vardTest", ""},
                                               {"vardSessions", ""},
                                               {"vardTestConnect", "sss nobody-knows '' x"},
                                               {"vardLogin", "sss nobody-knows '' x"},
                                               {"vardSessionShutdown", "u 999"},
                                               {"vardDisconnect", "u 999"},
                                               {"proxyListenStarted", "ub 999 true"},
                                               {"proxyClientConnected", "us 999 10.1.2.3"},
                                               {"proxySessionConnected", "uus 999 0 10.1.2.3"},
                                               {"proxyListenTimeout", "u 1"},
                                               {"vardSendNotify", "ussy 999 a b 1"},
                                               {"vardRdpSecurityPolicy", "ubbb 999 true true true"},
                                               {"vardSessionDurationLimit", "uu 999 1"},
                                               {"vardSessionInactivityLimit", "uu 999 1"},
                                               {"vardSessionInfoJson", "u 999"},
                                               {"vardUserInfoJson", "s nobody-knows"},
                                               {"vardSessionGeometry", "uqq 999 640 480"},
                                               {"vardProgramList", ""},
                                               {"busProgramRequest", "sssqqs nobody-knows '' x 640 480 nothing"},
                                               {"busSessionDomainRequest", "sssyqq nobody-knows '' x 24 640 480"},
                                               {"vardSessionRequest", "s '{}'"},
                                               {"vardConnectRdpTransport", "uu 999 1"},
                                               {"vardLoadAverage", ""},
                                               {"zabbixSessionsTotal", ""},
                                               {"zabbixSessionsOnline", ""},
                                               {"vardSessionProcess", "u 999"},
                                               {"vardSessionDBusAddress", "s nobody-knows"},
                                               {"vardCheckProxyListen", ""}};

/// Those that only root may call.
const std::map<std::string, std::string> rootCalls{
    {"vardCheckAuthUser", "sss nobody-knows x vard"}, {"busSetDebugLevel", "s info"}, {"busServiceShutdown", ""}};

class Policy : public ServiceTest {
protected:
    Policy() {
        mustRun("usermod -aG vard-frontend front; usermod -aG vard-monitor monitor");
        mustRun("busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig");
        start();
    }

    static Output as(const Account* account, const std::string& command) {
        return shell(account == nullptr ? command : "runuser -u " + account->name() + " -- " + command);
    }
    static bool allowed(const Account* account, const std::string& method, const std::string& args) {
        const auto output =
            as(account, "busctl call ru.korvex.vard /ru/korvex/vard ru.korvex.vard " + method + " " + args);
        const bool denied = output.text.find("ccess denied") != std::string::npos;
        EXPECT_EQ(denied, output.status != 0) << method << ": " << output.text;
        return !denied;
    }

    Account front{"front"};
    Account monitor{"monitor"};
};

TEST_F(Policy, EveryRoleMayCallWhatItIsThereForAndNothingElse) {
    ASSERT_EQ(calls.size() + rootCalls.size(), 35U);
    for (const auto& [method, args] : calls) {
        const bool forMonitors = std::ranges::find(monitorMethods, method) != monitorMethods.end();
        EXPECT_TRUE(allowed(nullptr, method, args)) << method;
        EXPECT_TRUE(allowed(&front, method, args)) << method;
        EXPECT_EQ(allowed(&monitor, method, args), forMonitors) << method;
        EXPECT_FALSE(allowed(&alice, method, args)) << method;
    }
    for (const auto& [method, args] : rootCalls) {
        for (const auto* account : {&front, &monitor, &alice}) {
            EXPECT_FALSE(allowed(account, method, args)) << method;
        }
    }
    EXPECT_TRUE(service->running());
    for (const auto& [method, args] : rootCalls) { // the stop comes first in the alphabet but is no call of these
        EXPECT_TRUE(method == "busServiceShutdown" || allowed(nullptr, method, args)) << method;
    }
    EXPECT_TRUE(allowed(nullptr, "busServiceShutdown", ""));
    EXPECT_EQ(service->wait(), 0);
}

TEST_F(Policy, NobodyElseHearsOrFakesTheSignals) {
    const auto listen = [](const Account& account, const std::string& file) {
        return std::stoi(mustRun("runuser -u " + account.name() +
                                 " -- dbus-monitor --system \"type='signal',interface='ru.korvex.vard'\" >" + file +
                                 " 2>&1 & echo $!"));
    };
    listen(front, "/tmp/front");
    listen(alice, "/tmp/alice");
    Signals signals;
    const std::string emit = "busctl emit /ru/korvex/vard ru.korvex.vard ";
    ASSERT_TRUE(waitUntil([&] {
        bus.call("proxyListenTimeout", "u", 7U);
        return readFile("/tmp/front").find("signalProxyListenTimeout") != std::string::npos;
    }));
    for (const auto* account : {&front, &monitor, &alice}) {
        as(account, emit + "signalSessionShutdown u 33");
    }
    bus.call("proxyListenTimeout", "u", 99U);
    std::vector<Signal> heard;
    do {
        const auto more = signals.upTo("signalProxyListenTimeout");
        heard.insert(heard.end(), more.begin(), more.end());
    } while (heard.back().args != std::vector<uint32_t>{99});
    for (const auto& signal : heard) {
        EXPECT_EQ(signal.name, "signalProxyListenTimeout") << "faked";
    }
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/front").find("uint32 99") != std::string::npos; }));
    EXPECT_EQ(readFile("/tmp/alice").find("signalProxyListenTimeout"), std::string::npos);
    mustRun("pkill dbus-monitor");
}

TEST_F(Policy, NobodyElseTakesTheName) {
    service->stop();
    for (const auto* account : {&front, &monitor, &alice}) {
        EXPECT_NE(as(account, "busctl call org.freedesktop.DBus / org.freedesktop.DBus RequestName su ru.korvex.vard 0")
                      .status,
                  0)
            << account->name();
    }
}

} // namespace
