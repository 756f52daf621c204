// The ends of a session: whoever causes it, it takes the same road and leaves nothing.
#include "service.h"

#include <algorithm>
#include <csignal>
#include <functional>

namespace {

using namespace Test;

class SessionEnd : public ServiceTest {};

// A session's client stays away for long, and so does the watcher: another user's sessions come and go meanwhile.
TEST_F(SessionEnd, EveryCauseEndsItAllAndFreesTheDisplay) {
    writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start(testConfig({{"session:path", "/usr/bin/xterm"}, {"seamless:timeout", 1}}));
    const Account bob("bob");
    Signals signals;
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "bob", "", "secret", 640, 480, "Clock").number, 33);
    const int transport = launch("sleep 100000");
    bus.call("proxySessionConnected", "uus", 33U, static_cast<uint32_t>(transport), "10.1.2.3");
    signals.upTo("signalSessionConnected");
    ::kill(transport, SIGKILL);
    EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (Heard{{"signalSessionDisconnected", {33}}}));

    uint32_t sid = 0;
    const auto expectEnd = [&](const std::string& user) {
        Heard seen; // the other session may end in between
        while (seen.empty() || seen.back() != Signal{"signalSessionShutdown", {sid}}) {
            std::ranges::copy(signals.upTo("signalSessionShutdown"), std::back_inserter(seen));
        }
        EXPECT_EQ(std::ranges::count(seen, Signal{"signalSessionDisconnected", {sid}}), 1);
        EXPECT_EQ(bus.session(sid), "{}");
        EXPECT_TRUE(waitUntil([&] { return processes("", user).empty(); })) << shell("ps -u alice -f").text;
    };
    const std::vector<std::function<void(const Json::Value&)>> causes{
        [&](const auto&) { EXPECT_EQ(bus.call("vardSessionShutdown", "u", sid).number, 1); },
        [](const auto& session) { ::kill(session["pid1"].asInt(), SIGKILL); },
        [](const auto& session) { ::kill(session["pid2"].asInt(), SIGTERM); },
        [](const auto&) { mustRun("pkill -x xterm"); },
        [](const auto& session) { ::kill(session["pid2"].asInt(), SIGKILL); },
        [](const auto&) { mustRun("pkill -KILL -u alice"); },
        [&](const auto&) { bus.call("vardSessionDurationLimit", "uu", sid, 1U); },
    };
    for (const auto& cause : causes) {
        sid = static_cast<uint32_t>(bus.login("alice"));
        cause(info(sid));
        expectEnd("alice");
    }
    EXPECT_TRUE(journal.waitFor("durationLimitSessionsWatcher: session stopped, id: 0x"));
    EXPECT_TRUE(journal.waitFor("seamlessTimeoutWatcher: session stopped, id: 0x00000021, display: 33, time pass: "));
    EXPECT_TRUE(waitUntil([] { return processes("", "bob").empty(); }));
    expectNothingLeft();
}

} // namespace
