// The line that the hash tool writes.
#include "hash_line.h"

#include <gtest/gtest.h>

namespace {

using Vard::wholeFirstLine;

TEST(HashLine, IsTakenOnlyWhenItIsWhole) {
    EXPECT_EQ(wholeFirstLine("alice:::0123:::\nmore"), "alice:::0123:::");
    EXPECT_EQ(wholeFirstLine("алиса:::0123:::\r\n"), "алиса:::0123:::");
    for (const std::string broken : {"", "\n", "\r\n", "alice:::01", "alice:::01\r", "a\tb\n", "a\x7F\n", "a\r\r\n"}) {
        EXPECT_EQ(wholeFirstLine(broken), "") << broken;
    }
    EXPECT_EQ(wholeFirstLine(std::string("a\0b\n", 4)), "") << "cut short wherever it is taken for a C text";
}

} // namespace
