// What monitoring agents are told, as installed.
#include "service.h"

namespace {

using namespace Test;
using Monitoring = ServiceTest;

Output as(const std::string& user, const std::string& command) {
    return shell("runuser -u " + user + " -- /usr/share/vard/monitoring/" + command + " 2>&1");
}

TEST_F(Monitoring, ARefusedAgentIsToldFromADaemonThatIsGone) {
    const Account monitor("monitor");
    mustRun("usermod -aG vard-monitor monitor; busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig");
    EXPECT_EQ(as("monitor", "vard_agent_check").text, "0% drain #the session daemon does not answer\n");
    start();
    EXPECT_EQ(as("monitor", "vard_value zabbixSessionsTotal").text, "0\n");
    EXPECT_EQ(as("monitor", "vard_agent_check").text.find("ready up "), 0U);
    const auto denied = as("alice", "vard_value vardLoadAverage");
    EXPECT_EQ(denied.text, "access denied: alice is not in the group vard-monitor\n");
    EXPECT_EQ(denied.status, 1) << "no value must not look like one";
}

} // namespace
