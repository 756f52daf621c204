// UTF-16, both ways.
#include "encoding.h"

#include <gtest/gtest.h>

namespace {

using namespace Vard::Utils;

TEST(Encoding, Utf16GoesBothWays) {
    EXPECT_EQ(unicode2string(string2unicode("Имя \U0001F600")), "Имя \U0001F600");
    EXPECT_EQ(bytes2unicode({0x41, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x42}, false), "A\U0001F600");
    EXPECT_EQ(bytes2unicode({0x00, 0x41}, true), "A");
}

} // namespace
