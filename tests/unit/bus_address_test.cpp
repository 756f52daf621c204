// The address of a session bus, as the bus's launcher leaves it in a file.
#include "bus_address.h"

#include <gtest/gtest.h>

namespace {

using Vard::busAddressIn;

TEST(BusAddress, IsWhatTheFirstLineOfTheKeyHasBetweenItsQuotes) {
    EXPECT_EQ(busAddressIn("# note\nDBUS_SESSION_BUS_ADDRESS='unix:path=/x'\nDBUS_SESSION_BUS_ADDRESS='b'"),
              "unix:path=/x");
    EXPECT_EQ(busAddressIn("DBUS_SESSION_BUS_ADDRESS='"), "") << "shorter than its quotes";
    EXPECT_EQ(busAddressIn(" DBUS_SESSION_BUS_ADDRESS='a'\n"), std::nullopt) << "the search goes on in the next file";
}

} // namespace
