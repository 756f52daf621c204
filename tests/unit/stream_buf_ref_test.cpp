// The byte reader: orders of bytes, and its ends.
#include "stream_buf_ref.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

namespace {

using Vard::StreamBufRef;

TEST(StreamBufRef, ReadsBothOrdersAndAFailedReadMovesNothing) {
    const std::array<uint8_t, 10> bytes{9, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    const StreamBufRef reader(bytes.data(), bytes.size());
    EXPECT_EQ(reader.getInt8(), 9);
    EXPECT_EQ(reader.getIntLE32(), 0x04030201U);
    EXPECT_THROW(reader.getIntBE64(), std::invalid_argument);
    EXPECT_THROW(reader.getBytes(6), std::invalid_argument);
    EXPECT_EQ(reader.getIntBE32(), 0x05060708U);
    EXPECT_EQ(reader.peek(), 9);
    EXPECT_EQ(reader.last(), 1U);
}

} // namespace
