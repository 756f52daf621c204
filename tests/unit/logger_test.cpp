// Journal prints: which levels let what through, and what an entry says of itself.
#include "logger.h"

#include "scratch.h"

#include <cerrno>
#include <thread>

namespace {

using namespace Vard;

class Logging : public Scratch::Machine {
protected:
    void TearDown() override { Syslog::setDebugLevel(DebugLevel::Info); }
};

TEST_F(Logging, LevelDecidesWhatIsWritten) {
    const Scratch::Journal journal;
    errno = EXDEV;
    for (const auto level : {DebugLevel::None, DebugLevel::Silent, DebugLevel::Info, DebugLevel::Debug}) {
        Syslog::setDebugLevel(level);
        Syslog::error("%d: %s", static_cast<int>(level), "error");
        Syslog::warning("%s", "warning");
        Syslog::notice("%s", "notice");
        Syslog::info("%s", "info");
        Syslog::debug("%s", "debug");
    }
    EXPECT_EQ(errno, EXDEV) << "kept for the caller";
    EXPECT_EQ(journal.lines(),
              "0: error\nwarning\nnotice\n2: error\nwarning\nnotice\ninfo\n"
              "1: error\nwarning\nnotice\ninfo\ndebug\n");
    EXPECT_EQ(Scratch::run("for p in err warning notice info debug; do "
                           "journalctl -q -o cat -t LevelDecidesWhatIsWritten -p $p..$p | sort -u; done"),
              "0: error\n1: error\n2: error\nwarning\nnotice\ninfo\ndebug\n");
}

// The journal library builds the line on the caller's stack, however long it is.
TEST_F(Logging, LongLinesAreCutWhereACharacterEndsAndSayHowLongTheyWere) {
    const Scratch::Journal journal;
    std::string text = "x";
    while (text.size() < 1100000) {
        text += "\u0416"; // two bytes
    }
    std::jthread([&] { Syslog::error("%s", text.c_str()); }).join();
    const std::string line = journal.lines();
    const std::string mark = " [cut, " + std::to_string(text.size()) + " bytes]\n";
    ASSERT_TRUE(line.ends_with(mark)) << line.size();
    EXPECT_LE(line.size(), size_t{64} << 10);
    EXPECT_EQ(line.substr(line.size() - mark.size() - 2, 2), "\u0416");
    Syslog::error("%s", text.substr(0, 65001).c_str());
    EXPECT_TRUE(journal.lines().ends_with("\n" + text.substr(0, 65001) + "\n"));
}

} // namespace
