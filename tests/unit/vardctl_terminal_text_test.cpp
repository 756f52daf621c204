// Texts of users on an administrator's terminal.
#include "failure.h"
#include "json.h"
#include "terminal_text.h"

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
    EXPECT_EQ(jsonLine("\x1b\u009b\x7f"), "\"\\u001b\\u009b\\u007f\"\n");
    EXPECT_EQ(jsonLine(parseJson("1 // \x1b[2J")), "1\n") << "a comment would be printed as it stands";
    EXPECT_THROW(parseJson(std::string(2000, '[')), Failure) << "deeper than the reader goes";
}

} // namespace
