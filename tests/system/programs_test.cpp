// The published programs and the sessions that run one of them.
#include "service.h"

#include <algorithm>
#include <fstream>

namespace {

using namespace Test;

constexpr const char* listFile = "/etc/vard/programs.json";

class Programs : public ServiceTest {
protected:
    std::vector<std::string> names() { return bus.call("vardProgramList").texts; }
    int64_t run(const char* name) {
        return bus.call("busProgramRequest", "sssqqs", "alice", "WORK", "secret", 640, 480, name).number;
    }
};

bool holds(const std::vector<std::string>& names, const std::string& name) {
    return std::ranges::find(names, name) != names.end();
}

TEST_F(Programs, InstalledDesktopEntriesAreOffered) {
    writeFile(listFile, "[]");
    start();
    const auto offered = names();
    EXPECT_TRUE(holds(offered, "XTerm"));
    EXPECT_TRUE(holds(offered, "Файловый менеджер PCManFM")) << "a translated name comes first";
    const auto count =
        std::stoul(mustRun("grep -lE '^Type=Application' /usr/share/applications/*.desktop | "
                           "xargs grep -LE '^Hidden=true' | wc -l"));
    EXPECT_EQ(offered.size(), count);
}

TEST_F(Programs, BrokenListsLeaveTheDesktopEntries) {
    start();
    writeFile(listFile, "[]");
    const auto entries = names();
    ASSERT_FALSE(entries.empty());
    const auto record = [](const std::string& fields) { return "[{" + fields + "}]"; };
    for (const auto& text :
         {std::string(""), std::string("["), std::string("{}"), std::string("null"), std::string("[1,2]"),
          record(R"("name":["x"],"path":{}})"), record(R"("name":"a","path":"/bin/true","args":[{}]})"),
          record(R"("name":"a","path":"/no/such/binary")"), std::string(100000, '[')}) {
        writeFile(listFile, text);
        EXPECT_EQ(names(), entries) << text.substr(0, 60);
    }
    EXPECT_TRUE(journal.waitFor("ProgramListReload: binary not found: /no/such/binary for name: a"));
    EXPECT_TRUE(journal.has(std::string("reload: not json array: ") + listFile));
    mustRun(std::string("rm ") + listFile);
    EXPECT_EQ(names(), entries);
    EXPECT_TRUE(journal.waitFor(std::string("reload: path not found: ") + listFile));
    mustRun(std::string("mkfifo ") + listFile);
    EXPECT_EQ(names(), entries);
    mustRun(std::string("rm ") + listFile);

    std::string huge = "[";
    for (int i = 0; i < 60000; ++i) {
        huge += R"({"name":")" + std::string(200, 'n') + std::to_string(i) + R"(","path":"/bin/true"},)";
    }
    huge.back() = ']';
    writeFile(listFile, huge);
    const auto cut = names();
    EXPECT_GT(cut.size(), entries.size());
    EXPECT_LT(cut.size(), 60000U);
    EXPECT_TRUE(journal.waitFor("reload: names too long together, programs dropped: "));
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

TEST_F(Programs, ProgramRunsAsASessionOfItsOwn) {
    auto config = testConfig();
    config["session:path"] = "/usr/bin/xterm";
    writeFile(listFile, R"([{"name":"Clock","path":"/usr/bin/xclock","args":["-update","7"]},
                            {"name":"/usr/bin/xterm","path":"/usr/bin/xlogo"}])");
    start(config);
    Signals signals;
    ASSERT_EQ(run("Clock"), 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"),
              (std::vector<Signal>{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    EXPECT_TRUE(waitUntil([] { return !processes("/usr/bin/xclock -update 7", "alice").empty(); }));
    EXPECT_TRUE(journal.waitFor("sessionCorrectMainWindowSize: wait next iteration: 9"));
    const auto session = info(33);
    EXPECT_EQ(session["seamless:mode"], true);
    EXPECT_EQ(session["domain"], "WORK");
    EXPECT_EQ(session["depth"], 24);
    EXPECT_TRUE(session["ntlm"].asString().starts_with("alice:")) << session["ntlm"];
    EXPECT_EQ(run("Clock"), 33) << "the same program is the same session";
    EXPECT_EQ(bus.login("alice"), 34) << "the desktop is another";
    EXPECT_EQ(run("/usr/bin/xterm"), 35);
    EXPECT_EQ(info(35)["seamless:mode"], false) << "the name is the configured desktop's path";
    EXPECT_EQ(run("clock"), -1);
    EXPECT_TRUE(journal.waitFor("busProgramRequest: program not registered, name: `clock'"));

    config.removeMember("session:path");
    ASSERT_TRUE(reload(config));
    EXPECT_EQ(run("Clock"), 33);
    EXPECT_EQ(info(33)["seamless:mode"], false) << "no desktop is configured at all";
}

} // namespace
