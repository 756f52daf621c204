// What the words on the command line mean, and how refusals are told.
#include "arguments.h"
#include "options.h"
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Vardctl;
using testing::HasSubstr;

/// The message of the wrong usage that the action is; empty when it is none.
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

TEST(VardctlArguments, DigitsAreASessionUnlessAUserIsForced) {
    EXPECT_EQ(chooseTarget("4294967295", false), Target(4294967295U));
    EXPECT_EQ(chooseTarget("33", true), Target("33"));
    for (const char* name : {"alice", "3com", "-1", "0x21"}) {
        EXPECT_EQ(chooseTarget(name, false), Target(name));
    }
    EXPECT_NE(misuse([] { chooseTarget("4294967296", false); }), "");
    EXPECT_NE(misuse([] { chooseTarget("", true); }), "");
}

TEST(VardctlArguments, NumbersAreDecimalAndInRange) {
    EXPECT_EQ(number("0", 0, 9, "n"), 0U);
    for (const char* word : {"", "-1", "+1", " 1", "1 ", "0x1", "01", "10", "99999999999999999999"}) {
        EXPECT_EQ(misuse([&] { number(word, 0, 9, "n"); }),
                  "n: a number from 0 to 9 is needed, not `" + std::string(word) + "'");
    }
    EXPECT_EQ(screenSize("65535x1"), (Size{65535, 1}));
    for (const char* word : {"1280", "1280x", "x1024", "1280x1024x24", "0x1024", "65536x1"}) {
        EXPECT_NE(misuse([&] { screenSize(word); }), "") << word;
    }
}

TEST(VardctlArguments, WrongUsageNamesTheHelpToLookAt) {
    const auto refusal = [](std::vector<const char*> words) {
        words.insert(words.begin(), "vardctl");
        return misuse([&] { parseCommandLine(static_cast<int>(words.size()), words.data()); });
    };
    EXPECT_EQ(refusal({"nonsense"}), "unknown subcommand: nonsense; see vardctl --help");
    EXPECT_THAT(refusal({"login", "alice", "--password", "x"}), HasSubstr("--password; see vardctl login --help"));
}

TEST(VardctlFailures, AnAbsentServiceIsToldFromOneThatRefuses) {
    const auto code = [](const std::string& last) {
        return busFailure({"org.freedesktop.DBus.Error." + last, "text", "vardTest"}, "status").code();
    };
    for (const char* name : {"ServiceUnknown", "NameHasNoOwner", "Disconnected", "NoReply", "Timeout"}) {
        EXPECT_EQ(code(name), ExitCode::notRunning) << name;
    }
    EXPECT_EQ(code("Failed"), ExitCode::failed);
}

} // namespace
