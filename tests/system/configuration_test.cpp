// The journal's levels and fields, and the reload of a changed configuration.
#include "service.h"

namespace {

using namespace Test;

class Configuration : public ServiceTest {};

TEST_F(Configuration, EntriesNameTheLoggerAndKeepToTheLevel) {
    start();
    bus.call("busSetDebugLevel", "s", "info");
    ASSERT_TRUE(journal.waitFor("busSetDebugLevel: level: info")); // and with it all that came before
    const auto before = journal.count("vardStatus");
    bus.call("vardStatus");
    bus.call("busSetDebugLevel", "s", "DEBUG");
    EXPECT_TRUE(journal.waitFor("setDebugLevel: unknown level: DEBUG"));
    EXPECT_EQ(journal.count("vardStatus"), before); // the debug line was not written
    bus.call("busSetDebugLevel", "s", "none");
    bus.call("busSetDebugLevel", "s", "debug");
    bus.call("vardStatus");
    EXPECT_TRUE(waitUntil([&] { return journal.count("vardStatus") == before + 1; }));
    EXPECT_FALSE(journal.has("setDebugLevel: level: debug") && journal.count("setDebugLevel: level: debug") > 1)
        << "the old level decides";
    bool checked = false;
    for (auto& entry : journal.entries()) {
        if (entry["MESSAGE"].starts_with("setDebugLevel: unknown level")) {
            EXPECT_EQ(entry["PRIORITY"] + entry["CODE_FILE"] + entry["CODE_LINE"] + entry["CODE_FUNC"],
                      "3src/logger97error");
            checked = true;
        }
    }
    EXPECT_TRUE(checked);
}

TEST_F(Configuration, ChangedFileIsTakenOverAndABrokenOneIsNot) {
    auto config = testConfig();
    config["display:max"] = 34;
    start(config);
    Account bob("bob");
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_EQ(bus.login("bob"), -1);
    EXPECT_TRUE(journal.waitFor("startSession: full house"));

    ASSERT_TRUE(reload("{ \"display:max\": 60", "reloadConfigWatcher: exception:"));
    EXPECT_EQ(bus.login("bob"), -1);
    ASSERT_TRUE(reload("[]", "reloadConfigWatcher: json not object, file:"));

    config["display:max"] = 35;
    config["session:programs"] = "/tmp/programs.json";
    writeFile("/tmp/programs.json", R"([{"name":"Sleep","path":"/usr/bin/sleep","args":["1000"]}])");
    ASSERT_TRUE(reload(config));
    EXPECT_EQ(bus.login("bob"), 34);

    // Moving the range must not hand out a display that a session still bears.
    config["display:min"] = 32;
    ASSERT_TRUE(reload(config));
    const auto reply = bus.call("vardSessionRequest", "s", R"({"username":"bob","password":"x","program":"Sleep"})");
    EXPECT_EQ(reply.number, -1) << "the slot left over stands for a display in use";
    EXPECT_EQ(bus.call("vardSessionInfoJson", "u", 33U).text.find("{\"home\":\"/home/alice\""), 0U);
}

TEST_F(Configuration, BrokenValuesFallBackToTheirDefaults) {
    auto config = testConfig();
    config["xcon:attempts:count"] = "many";
    config["display:min"] = Json::arrayValue;
    config["session:args"] = "not-a-list";
    start(config);
    EXPECT_EQ(bus.login("alice"), 33);
    EXPECT_TRUE(journal.waitFor("bad value, key: xcon:attempts:count"));
}

} // namespace
