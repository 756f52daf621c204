// Texts that are replaced, made valid for the bus, and turned into other encodings.
#include "text.h"

#include "encoding.h"

#include <gtest/gtest.h>

namespace {

using namespace Vard::Utils;

TEST(Text, IsReplacedUntilNothingIsLeft) {
    EXPECT_EQ(stringReplace("aabb", "ab", ""), "") << "also what a replacement creates";
    EXPECT_EQ(stringReplace("text", "", "x"), "text");
}

TEST(Text, OnlyValidGoesOnTheBus) {
    const std::string replaced = "\xEF\xBF\xBD";
    EXPECT_EQ(toValidUtf8("Имя €\U0001F600"), "Имя €\U0001F600");
    EXPECT_EQ(toValidUtf8("a\xff\xc3"), "a" + replaced + replaced);
    EXPECT_EQ(toValidUtf8(std::string_view("a\0b", 3)), "a" + replaced + "b");
    EXPECT_EQ(toValidUtf8("\xc0\xaf"), replaced + replaced) << "overlong";
    EXPECT_EQ(toValidUtf8("\xed\xa0\x80"), replaced + replaced + replaced) << "a surrogate";
    EXPECT_EQ(toValidUtf8("\xf4\x90\x80\x80").substr(0, 3), replaced) << "above the last code point";
}

TEST(Encoding, Utf16GoesBothWays) {
    EXPECT_EQ(unicode2string(string2unicode("Имя \U0001F600")), "Имя \U0001F600");
    EXPECT_EQ(bytes2unicode({0x41, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x42}, false), "A\U0001F600");
    EXPECT_EQ(bytes2unicode({0x00, 0x41}, true), "A");
}

} // namespace
