// Mandatory labels, with stand-ins that record what is asked of the platform's libraries.
#include "parsec.h"

#include "child_waits.h"
#include "process.h"
#include "scratch.h"

namespace {

using namespace Vard;

class ParsecLabels : public Scratch::Machine {
protected:
    /// How a program ends that is started while the libraries refuse the call; none when it is empty.
    static int statusWhenRefused(const char* call) {
        Scratch::run("rm -f /tmp/parsec.log");
        ::setenv("PARSEC_STANDIN_REFUSE", call, 1);
        return waitProcessPid(Utils::runChildProcess("/bin/true", {}, "daemon", {}));
    }
    static std::string calls() { return Scratch::run("cat /tmp/parsec.log"); }
};

TEST_F(ParsecLabels, LevelsAreReadPerUser) {
    EXPECT_EQ(Parsec::userIntegrity(1), 61U) << "the stand-ins must be in the library path";
    EXPECT_FALSE(Parsec::userIntegrity(2));
    const auto labels = Parsec::userLabels(1);
    ASSERT_TRUE(labels);
    EXPECT_EQ(labels->min.categories, 2U);
    EXPECT_EQ(labels->max.level, 3U);
}

TEST_F(ParsecLabels, ProgramsStartUnderTheUsersLevelWithEverythingElseZero) {
    EXPECT_EQ(statusWhenRefused(""), 0);
    EXPECT_EQ(calls(),
              "pdp_init 0\npdp_get_pid 0\npdpl_set_ilev 61\npdpl_set_lev 0\npdpl_set_cat 0\npdpl_set_type 0\n"
              "pdp_set_pid 0\npdp_release 0\n");
}

TEST_F(ParsecLabels, NoProgramRunsUnderALabelThatWasRefused) {
    for (const char* call : {"pdp_get_pid", "pdpl_set_ilev", "pdpl_set_type", "pdp_set_pid"}) {
        EXPECT_NE(statusWhenRefused(call), 0) << call;
        EXPECT_TRUE(calls().ends_with("pdp_release 0\n")) << call;
    }
    EXPECT_EQ(statusWhenRefused("pdp_init"), 0) << "a system without labels";
    EXPECT_EQ(calls(), "pdp_init 0\n");
}

} // namespace
