// What the words on the command line mean.
#include "arguments.h"
#include "failure.h"

#include <gtest/gtest.h>

namespace {

using namespace Vardctl;

TEST(VardctlArguments, DigitsAreASessionUnlessAUserIsForced) {
    EXPECT_EQ(chooseTarget("4294967295", false), Target(4294967295U));
    EXPECT_EQ(chooseTarget("33", true), Target("33"));
    for (const char* name : {"alice", "3com", "-1", "0x21"}) {
        EXPECT_EQ(chooseTarget(name, false), Target(name));
    }
    EXPECT_THROW(chooseTarget("4294967296", false), Failure);
    EXPECT_THROW(chooseTarget("", true), Failure);
}

} // namespace
