// Texts of users on an administrator's terminal.
#include "json.h"
#include "text.h"

#include <gtest/gtest.h>

namespace {

using namespace Vardctl;

class VardctlText : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(useUtf8()); }
};

TEST_F(VardctlText, NothingSteersTheTerminal) {
    EXPECT_EQ(harmless("plain Имя €\U0001F600"), "plain Имя €\U0001F600");
    EXPECT_EQ(harmless("\x1b[2J\a\x7f"), "\\x1b[2J\\x07\\x7f");
    EXPECT_EQ(harmless("a\nb\tc\rd\\n"), "a\\nb\\tc\\rd\\\\n") << "a backslash of the text's own can be told apart";
    EXPECT_EQ(harmless("\u009b31m"), "\\xc2\\x9b31m") << "the control characters of two bytes";
    EXPECT_EQ(harmless("\u202etxt.exe"), "\\xe2\\x80\\xaetxt.exe") << "the direction of reading";
    EXPECT_EQ(harmless("\xff\xd0"), "\\xff\\xd0") << "no UTF-8, and the start of a character at the end";
    EXPECT_EQ(harmless(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST_F(VardctlText, ColumnsCountCharactersNotBytes) {
    EXPECT_EQ(columns("Имя"), 3U);
    EXPECT_EQ(columns("漢字"), 4U);
    EXPECT_EQ(columns("e\u0301"), 1U) << "an accent of its own";
}

TEST_F(VardctlText, AgesShowTheirTwoGreatestUnits) {
    EXPECT_EQ(ageText(0), "0s");
    EXPECT_EQ(ageText(59), "59s");
    EXPECT_EQ(ageText(60), "1min0s");
    EXPECT_EQ(ageText(3599), "59min59s");
    EXPECT_EQ(ageText(3600), "1h0min");
    EXPECT_EQ(ageText(86399), "23h59min");
    EXPECT_EQ(ageText(86400), "1d0h");
    EXPECT_EQ(ageText(4294967295), "49710d6h");
}

TEST_F(VardctlText, JsonEscapesWhatTheServiceLeavesAsItIs) {
    const auto value = parseJson("{\"gecos\":\"a\x1b\nb \\\"c\\\" \\\\ \u009b\"}");
    EXPECT_EQ(jsonLine(value), "{\"gecos\":\"a\\u001b\\nb \\\"c\\\" \\\\ \\u009b\"}\n");
    EXPECT_THROW(parseJson("no json"), std::runtime_error);
}

} // namespace
