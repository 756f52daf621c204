// The byte reader: orders of bytes, and its ends.
#include "stream_buf_ref.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

namespace {

using Vard::StreamBufRef;

TEST(StreamBufRef, ReadsBothOrdersWithoutAlignment) {
    const std::array<uint8_t, 15> bytes{9, 1, 2, 1, 2, 3, 4, 1, 2, 3, 4, 5, 6, 7, 8};
    const StreamBufRef reader(bytes.data(), bytes.size());
    EXPECT_EQ(reader.getInt8(), 9);
    EXPECT_EQ(reader.getIntBE16(), 0x0102);
    EXPECT_EQ(reader.getIntLE32(), 0x04030201U);
    EXPECT_EQ(reader.getIntBE64(), 0x0102030405060708ULL);
    EXPECT_EQ(reader.last(), 0U);
}

TEST(StreamBufRef, FailedReadThrowsAndMovesNothing) {
    const std::array<uint8_t, 3> bytes{1, 2, 3};
    const StreamBufRef reader(bytes.data(), bytes.size());
    EXPECT_THROW(reader.getIntLE32(), std::invalid_argument);
    EXPECT_THROW(reader.skip(4), std::invalid_argument);
    EXPECT_THROW(reader.getBytes(4), std::invalid_argument);
    EXPECT_EQ(reader.getIntBE16(), 0x0102);
    EXPECT_EQ(reader.peek(), 3);
    EXPECT_EQ(reader.last(), 1U);
    const StreamBufRef empty(nullptr, 10);
    EXPECT_TRUE(empty.getBytes(0).empty());
    EXPECT_THROW(static_cast<void>(empty.peek()), std::out_of_range);
}

} // namespace
