// What the command makes of the bus's refusals.
#include "access.h"
#include "bus_client.h"

#include <gmock/gmock.h>

namespace {

using namespace Vardctl;

TEST(VardctlAccess, ADeniedCallerLearnsWhoMay) {
    EXPECT_EQ(requiredGroup("busSessionsInfo"), "vard-frontend");
    const auto denied = callFailure("busSessionsInfo", "org.freedesktop.DBus.Error.AccessDenied", "Rejected");
    EXPECT_EQ(denied.code(), ExitCode::denied);
    EXPECT_THAT(denied.what(), testing::EndsWith("by root and by members of the group vard-frontend"));
    EXPECT_THAT(deniedMessage("busServiceShutdown"), testing::EndsWith("by root alone"));
}

TEST(VardctlAccess, AnAbsentServiceIsToldFromOneThatRefuses) {
    const auto code = [](const std::string& last) {
        return callFailure("vardTest", "org.freedesktop.DBus.Error." + last, "text").code();
    };
    for (const char* name : {"ServiceUnknown", "NameHasNoOwner", "Disconnected", "NoReply", "Timeout"}) {
        EXPECT_EQ(code(name), ExitCode::notRunning) << name;
    }
    EXPECT_EQ(code("Failed"), ExitCode::failed);
    EXPECT_STREQ(callFailure("vardTest", "org.example.Strange", "").what(), "vardTest failed: org.example.Strange");
}

} // namespace
