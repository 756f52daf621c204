// What the words on the command line mean, and what they are refused with.
#include "arguments.h"
#include "commands.h"
#include "failure.h"
#include "options.h"

#include <gmock/gmock.h>

namespace {

using namespace Vardctl;

/// The message of the wrong usage that the action is.
template <typename Action>
std::string misuse(Action action) {
    try {
        action();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage);
        return failure.what();
    }
    return "";
}

Invocation parse(std::vector<const char*> words) {
    words.insert(words.begin(), "vardctl");
    return parseCommandLine(static_cast<int>(words.size()), words.data());
}

TEST(VardctlArguments, DigitsAreASessionUnlessAUserIsForced) {
    EXPECT_EQ(chooseTarget("33", false), Target(33U));
    EXPECT_EQ(chooseTarget("4294967295", false), Target(4294967295U));
    EXPECT_EQ(chooseTarget("33", true), Target("33"));
    for (const char* name : {"alice", "3com", "-1", "3 ", "0x21"}) {
        EXPECT_EQ(chooseTarget(name, false), Target(name));
    }
    EXPECT_NE(misuse([] { chooseTarget("4294967296", false); }), "");
    EXPECT_NE(misuse([] { chooseTarget("", true); }), "");
}

TEST(VardctlArguments, NumbersAreDecimalAndInRange) {
    EXPECT_EQ(number("0", 0, 9, "n"), 0U);
    for (const char* word : {"", "-1", "+1", " 1", "1 ", "0x1", "010", "10", "99999999999999999999"}) {
        EXPECT_EQ(misuse([&] { number(word, 0, 9, "n"); }),
                  "n: a number from 0 to 9 is needed, not `" + std::string(word) + "'");
    }
    EXPECT_EQ(screenSize("65535x1"), (Size{65535, 1}));
    for (const char* word : {"", "1280", "1280x", "x1024", "1280x1024x24", "0x1024", "65536x1", "1280X1024"}) {
        EXPECT_NE(misuse([&] { screenSize(word); }), "") << word;
    }
    EXPECT_EQ(logLevel("notice"), "none") << "the service's own word";
    EXPECT_EQ(logLevel("debug"), "debug");
    EXPECT_NE(misuse([] { logLevel("warning"); }), "") << "the service would ignore it silently";
}

TEST(VardctlArguments, WordsReachTheirSubcommand) {
    const auto send = parse({"notify", "33", "--header", "Title", "--level", "2", "--", "--text"});
    EXPECT_EQ(send.command, notify);
    EXPECT_EQ(send.options.target, "33");
    EXPECT_EQ(send.options.header, "Title");
    EXPECT_EQ(send.options.urgency, "2");
    EXPECT_EQ(send.options.message, "--text");
    const auto limit = parse({"limit", "33", "--inactivity", "5"});
    EXPECT_EQ(limit.options.inactivity, "5");
    EXPECT_FALSE(limit.options.duration);
    EXPECT_TRUE(parse({"show", "--user", "1234", "--json"}).options.forceUser);
}

TEST(VardctlArguments, WrongUsageNamesTheHelpToLookAt) {
    EXPECT_EQ(misuse([] { parse({"nonsense"}); }), "unknown subcommand: nonsense; see vardctl --help");
    EXPECT_THAT(misuse([] { parse({}); }), testing::HasSubstr("subcommand is required"));
    EXPECT_THAT(misuse([] { parse({"show"}); }), testing::HasSubstr("see vardctl show --help"));
    EXPECT_THAT(misuse([] { parse({"stop", "now"}); }), testing::HasSubstr("now"));
    EXPECT_THAT(misuse([] { parse({"login", "alice", "--password", "x"}); }), testing::HasSubstr("--password"));
}

} // namespace
