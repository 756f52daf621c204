// Random bytes.
#include "random_bytes.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace Vard::Utils;

TEST(RandomBytes, NeverRepeatWithinABlock) {
    const auto bytes = randomBytes(300);
    ASSERT_EQ(bytes.size(), 300U);
    EXPECT_EQ(std::set<uint8_t>(bytes.begin(), bytes.begin() + 256).size(), 256U);
    EXPECT_NE(randomBytes(32), randomBytes(32));
}

} // namespace
