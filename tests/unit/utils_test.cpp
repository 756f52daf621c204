// Strings, encodings and random bytes.
#include "utils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>

namespace {

using namespace Vard::Utils;

TEST(Utils, ReplacesEverythingAndRefusesWhatWouldNeverEnd) {
    EXPECT_EQ(stringReplace("/run/user/%{uid}", "%{uid}", 1000), "/run/user/1000");
    EXPECT_EQ(stringReplace("%{display}x%{display}", "%{display}", "40"), "40x40");
    EXPECT_EQ(stringReplace("aab", "ab", ""), "a");
    EXPECT_EQ(stringReplace("aabb", "ab", ""), "") << "also what a replacement creates";
    EXPECT_EQ(stringReplace("text", "", "x"), "text");
    EXPECT_THROW(stringReplace("%{a}", "%{a}", "/tmp/%{a}"), std::invalid_argument);
}

TEST(Utils, QuotingIsUndoneExactly) {
    const std::string text = R"(a "b" \ c)";
    EXPECT_EQ(stringQuoted(text), R"("a \"b\" \\ c")");
    EXPECT_EQ(stringUnquoted(stringQuoted(text)), text);
    EXPECT_EQ(stringUnquoted("two words"), "two");
    EXPECT_EQ(stringQuoted(""), "\"\"");
}

TEST(Utils, OnlyValidTextGoesOnTheBus) {
    const std::string replaced = "\xEF\xBF\xBD";
    EXPECT_EQ(toValidUtf8("Имя €\U0001F600"), "Имя €\U0001F600");
    EXPECT_EQ(toValidUtf8("a\xff\xc3"), "a" + replaced + replaced);
    EXPECT_EQ(toValidUtf8(std::string_view("a\0b", 3)), "a" + replaced + "b");
    EXPECT_EQ(toValidUtf8("\xc0\xaf"), replaced + replaced) << "overlong";
    EXPECT_EQ(toValidUtf8("\xed\xa0\x80"), replaced + replaced + replaced) << "a surrogate";
    EXPECT_EQ(toValidUtf8("\xf4\x90\x80\x80").substr(0, 3), replaced) << "above the last code point";
}

TEST(Utils, Utf16GoesBothWays) {
    EXPECT_EQ(unicode2string(string2unicode("Имя \U0001F600")), "Имя \U0001F600");
    EXPECT_EQ(bytes2unicode({0x41, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x42}, false), "A\U0001F600");
    EXPECT_EQ(bytes2unicode({0x00, 0x41}, true), "A");
    EXPECT_EQ(hexString({0x0a, 0xff}, ":", false), "0a:ff");
    EXPECT_EQ(stringUpper("dom-ä"), "DOM-ä");
}

TEST(Utils, RandomBytesNeverRepeatWithinABlock) {
    const auto bytes = randomBytes(300);
    ASSERT_EQ(bytes.size(), 300U);
    EXPECT_EQ(std::set<uint8_t>(bytes.begin(), bytes.begin() + 256).size(), 256U);
    EXPECT_EQ(std::set<uint8_t>(bytes.begin() + 256, bytes.end()).size(), 44U);
    EXPECT_NE(randomBytes(32), randomBytes(32));
    EXPECT_TRUE(randomBytes(0).empty());
}

} // namespace
