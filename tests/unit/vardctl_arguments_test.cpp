// What the words on the command line mean.
#include "arguments.h"
#include "failure.h"
#include "options.h"

#include <gtest/gtest.h>

namespace {

using namespace Vardctl;

/// The message that refuses these words after "vardctl"; empty when they are right.
std::string refusal(std::vector<const char*> words) {
    words.insert(words.begin(), "vardctl");
    try {
        parseCommandLine(static_cast<int>(words.size()), words.data());
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
    EXPECT_THROW(chooseTarget("4294967296", false), Failure);
    EXPECT_THROW(chooseTarget("", true), Failure);
}

TEST(VardctlArguments, WrongOnesAreNamedWithTheHelpToLookAt) {
    for (const char* word : {"", "-1", "+1", " 1", "1 ", "0x1", "01", "256", "99999999999999999999"}) {
        EXPECT_EQ(
            refusal({"notify", "33", "text", "--level", word}),
            "--level: a number from 0 to 255 is needed, not `" + std::string(word) + "'; see vardctl notify --help");
    }
    EXPECT_EQ(screenSize("65535x1").text(), "65535x1");
    for (const char* word : {"1280", "1280x", "x1024", "1280x1024x24", "0x1024", "65536x1"}) {
        EXPECT_NE(refusal({"resize", "33", word}), "") << word;
    }
    EXPECT_EQ(refusal({"nonsense"}), "unknown subcommand: nonsense; see vardctl --help");
}

} // namespace
