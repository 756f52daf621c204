// Who may call, hear and be the service: the roles of the bus policy, each tried with a real account, and what
// monitoring agents are told.
#include "interface_table.h"
#include "service.h"

#include <map>
#include <regex>
#include <sstream>

namespace {

using namespace Test;

/// What the connector may call beside the front ends.
const std::set<std::string> connectorMethods{"vardSessions",         "vardSessionInfoJson",   "proxyListenStarted",
                                             "proxyClientConnected", "proxySessionConnected", "vardRdpSecurityPolicy"};

/// Every method of the service, with arguments as busctl takes them and that mean nothing.
std::map<std::string, std::string> allCalls() {
    std::istringstream methods(
        mustRun("busctl introspect ru.korvex.vard /ru/korvex/vard ru.korvex.vard | "
                "awk '$2 == \"method\" {print substr($1, 2), $3}'"));
    const std::map<char, std::string> words{{'s', " '{}'"}, {'u', " 999"}, {'b', " true"}, {'y', " 24"}, {'q', " 640"}};
    std::map<std::string, std::string> calls;
    for (std::string name, types; methods >> name >> types;) {
        auto& args = calls[name];
        if (types != "-") { // none
            args = types;
            for (const char type : types) {
                args += words.at(type);
            }
        }
    }
    return calls;
}

class Policy : public ServiceTest {
protected:
    Policy() {
        mustRun("usermod -aG vard-frontend front; usermod -aG vard-monitor monitor");
        mustRun("busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig");
        start();
    }

    static Output as(const std::string& user, const std::string& command) {
        return shell("runuser -u " + user + " -- " + command);
    }
    static bool allowed(const std::string& user, const std::string& method, const std::string& args) {
        const auto output =
            as(user, "busctl call ru.korvex.vard /ru/korvex/vard ru.korvex.vard " + method + " " + args);
        const bool denied = output.text.find("ccess denied") != std::string::npos;
        EXPECT_EQ(denied, output.status != 0) << method << ": " << output.text;
        return !denied;
    }

    Account front{"front"};
    Account monitor{"monitor"};
    const std::vector<std::string> others{"front", "monitor", "alice"};
};

TEST_F(Policy, EveryRoleMayCallWhatItIsThereForAndNothingElse) {
    const auto calls = allCalls();
    EXPECT_EQ(calls.size(), 35U);
    for (const auto& [method, args] : calls) {
        const auto callers = Vard::InterfaceTable::method(method).callers;
        EXPECT_EQ(allowed("front", method, args), callers != "root") << method;
        EXPECT_EQ(allowed("monitor", method, args), callers == "vard-monitor") << method;
        EXPECT_EQ(allowed("vard-connector", method, args), connectorMethods.contains(method)) << method;
        EXPECT_FALSE(allowed("alice", method, args)) << method;
        EXPECT_TRUE(method == "busServiceShutdown" || allowed("root", method, args)) << method;
    }
    EXPECT_TRUE(allowed("root", "busServiceShutdown", ""));
    service->wait();
}

TEST_F(Policy, NobodyElseHearsOrFakesTheSignalsOrTakesTheName) {
    // What everybody hears comes last, and tells when the listeners are ready.
    for (const std::string user : {"front", "alice"}) {
        std::string listen = "runuser -u " + user;
        listen += " -- dbus-monitor --system \"type='signal',interface='ru.korvex.vard'\" ";
        listen += "\"type='signal',member='NameOwnerChanged'\" >/tmp/" + user;
        mustRun(listen + " 2>&1 &");
        ASSERT_TRUE(waitUntil([&] {
            mustRun("busctl list");
            return readFile("/tmp/" + user).find("NameOwnerChanged") != std::string::npos;
        }));
    }
    Signals signals;
    for (const auto& user : others) {
        as(user, "busctl emit /ru/korvex/vard ru.korvex.vard signalSessionShutdown u 33");
    }
    bus.call("proxyListenTimeout", "u", 99U);
    EXPECT_EQ(signals.upTo("signalProxyListenTimeout"), (Heard{{"signalProxyListenTimeout", {99}}})) << "faked";
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/front").find("uint32 99") != std::string::npos; }));
    service->stop();
    ASSERT_TRUE(
        waitUntil([] { return readFile("/tmp/alice").find("string \"ru.korvex.vard\"") != std::string::npos; }));
    EXPECT_EQ(readFile("/tmp/alice").find("interface=ru.korvex.vard"), std::string::npos) << readFile("/tmp/alice");
    for (const auto& user : others) {
        const auto taken = as(user, "busctl call org.freedesktop.DBus / org.freedesktop.DBus RequestName su " +
                                        std::string(busName) + " 0");
        EXPECT_NE(taken.text.find("ccess denied"), std::string::npos) << user << taken.text;
    }
}

TEST_F(Policy, ARefusedMonitoringAgentIsToldFromADaemonThatIsGone) {
    const auto ask = [](const std::string& user, const std::string& command) {
        return as(user, "/usr/share/vard/monitoring/" + command);
    };
    EXPECT_EQ(ask("monitor", "vard_value zabbixSessionsTotal").text, "0\n");
    EXPECT_TRUE(std::regex_match(ask("monitor", "vard_agent_check").text, std::regex("up [1-9][0-9]*%\n")));
    EXPECT_EQ(ask("alice", "vard_agent_check").text.find("up 0% #access denied"), 0U);
    const auto denied = ask("alice", "vard_value vardLoadAverage");
    EXPECT_EQ(denied.text, "access denied: alice is not in the group vard-monitor\n");
    EXPECT_EQ(denied.status, 1) << "no value must not look like one";
    service->stop();
    EXPECT_EQ(ask("monitor", "vard_agent_check").text, "down #the session daemon does not answer\n");
}

} // namespace
