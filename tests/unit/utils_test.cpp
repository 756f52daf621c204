// Strings, encodings and random bytes.
#include "utils.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace Vard::Utils;

TEST(Utils, ReplacesUntilNothingIsLeft) {
    EXPECT_EQ(stringReplace("aabb", "ab", ""), "") << "also what a replacement creates";
    EXPECT_EQ(stringReplace("text", "", "x"), "text");
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
}

TEST(Utils, RandomBytesNeverRepeatWithinABlock) {
    const auto bytes = randomBytes(300);
    ASSERT_EQ(bytes.size(), 300U);
    EXPECT_EQ(std::set<uint8_t>(bytes.begin(), bytes.begin() + 256).size(), 256U);
    EXPECT_NE(randomBytes(32), randomBytes(32));
}

} // namespace
