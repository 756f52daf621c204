// The level of the journal, and the reload of a changed configuration.
#include "service.h"
#include "settings_review.h"

#include <regex>

namespace {

using namespace Test;

class Configuration : public ServiceTest {};

TEST_F(Configuration, LevelIsChangedOnRequestAndAnUnknownOneIsRefused) {
    start();
    bus.call("busSetDebugLevel", "s", "info");
    ASSERT_TRUE(journal.waitFor("busSetDebugLevel: level: info")); // and with it all that came before
    const auto before = journal.count("vardStatus");
    bus.call("vardStatus");
    bus.call("busSetDebugLevel", "s", "DEBUG");
    EXPECT_TRUE(journal.waitFor("setDebugLevel: unknown level: DEBUG"));
    EXPECT_NE(shell("journalctl -q PRIORITY=3 CODE_FILE=src/logger CODE_LINE=97 CODE_FUNC=error").text, "");
    EXPECT_EQ(journal.count("vardStatus"), before);
    bus.call("busSetDebugLevel", "s", "debug");
    bus.call("vardStatus");
    EXPECT_TRUE(waitUntil([&] { return journal.count("vardStatus") == before + 1; }));
}

TEST_F(Configuration, ChangedFileIsTakenOverABrokenOneIsNotABrokenValueIsTheDefault) {
    const Account bob("bob");
    start(testConfig({{"display:max", 34}, {"display:min", Json::arrayValue}, {"xcon:attempts:count", "many"}}));
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_TRUE(journal.waitFor("bad value, key: xcon:attempts:count"));
    ASSERT_TRUE(reload("{ \"display:max\": 60", "reloadConfigWatcher: exception:"));
    ASSERT_TRUE(reload("[]", "reloadConfigWatcher: json not object, file:"));
    EXPECT_EQ(bus.login("bob"), -1);
    EXPECT_TRUE(journal.waitFor("startSession: full house"));

    // The displays, the published programs and the level of the journal.
    writeFile("/tmp/new.json", R"([{"name":"New","path":"/usr/bin/xclock"}])");
    const auto* request = R"({"username":"bob","password":"x","program":"New"})";
    EXPECT_EQ(bus.call("vardSessionRequest", "s", request).number, -1);
    ASSERT_TRUE(
        reload(testConfig({{"display:max", 35}, {"session:programs", "/tmp/new.json"}, {"debug:level", "info"}})));
    const auto before = journal.count("vardStatus");
    bus.call("vardStatus");
    EXPECT_EQ(bus.call("vardSessionRequest", "s", request).number, 34);
    EXPECT_TRUE(journal.waitFor("vardSessionRequest, json: `{\"username\":\"bob\"")); // and with it all before
    EXPECT_EQ(journal.count("vardStatus"), before);

    ASSERT_TRUE(reload(testConfig({{"display:min", 70}, {"display:max", 80}})));
    auto broken = testConfig({{"display:min", "a hundred"}, {"display:max", 110}});
    ASSERT_TRUE(reload(broken.toStyledString(), "bad value, key: display:min"));
    broken["display:min"] = 99999;
    ASSERT_TRUE(reload(broken.toStyledString(), "reloadConfigWatcher: display range refused: 99999, 110"));
    const Account carol("carol");
    EXPECT_EQ(bus.login("carol"), 72) << "in the third slot of the range before";
}

// The keys of the example are the known ones, with their defaults.
TEST_F(Configuration, InstalledExampleIsAsTheCodeHasIt) {
    const std::string lines = shell("cat /etc/vard/vard_service.json").text;
    std::string text = std::regex_replace(lines, std::regex("// (\"[a-z:]+\": )"), "$1");
    const Vard::JsonConfigString example(text);
    const Vard::JsonConfig none;
    EXPECT_EQ(example.object().size(), Vard::allSettings.size());
    for (const auto& setting : Vard::allSettings) {
        std::visit(
            [&](const auto& one) {
                EXPECT_TRUE(example.hasValue(one.key)) << one.key;
                EXPECT_EQ(example.converted(one), none.converted(one)) << one.key;
            },
            setting);
    }
    for (const auto& finding : Vard::reviewSettings(example)) {
        ADD_FAILURE() << finding.text();
    }
}

TEST_F(Configuration, MisspeltKeyIsToldWithoutTheCommentsBeforeIt) {
    const Vard::JsonConfigString misspelt("{// what runs\n\"sesion:path\": \"/bin/sh\"}");
    EXPECT_EQ(Vard::reviewSettings(misspelt).at(0).text(),
              "unknown key, key: sesion:path, found: \"/bin/sh\", in force: nothing, and for session:path its default");
}

TEST_F(Configuration, WhatIsNotTakenAsItStandsIsReported) {
    start(testConfig({{"display:min", 41},
                      {"display:max", "39"},
                      {"sesion:path", "/bin/true"},
                      {"xvfb:netns", 1},
                      {"session:args", "-ls"},
                      {"pam:service", "verd"},
                      {"xauth:group", "nogroupatall"},
                      {"xcon:attempts:count", 0}}));
    for (const auto* line :
         {R"(unknown key, key: sesion:path, found: "/bin/true", in force: nothing)",
          R"(wrong type, key: display:max, found: "39", in force: 55 at the start)",
          "key: xvfb:netns, found: 1, in force: true", R"(key: session:args, found: "-ls", in force: [])",
          R"(no such file in /etc/pam.d, key: pam:service)", "no such group, key: xauth:group",
          "no attempt is left, key: xcon:attempts:count"}) {
        EXPECT_TRUE(journal.waitFor(line)) << line;
    }
    ASSERT_TRUE(reload(testConfig({{"display:min", 41}, {"display:max", 39}})));
    EXPECT_TRUE(journal.waitFor("key: display:min, found: 41, in force: 39 to 40"));
}

} // namespace
