// Journal prints: which levels let what through, and what an entry says of itself.
#include "logger.h"

#include "scratch.h"

#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sstream>

namespace {

using namespace Vard;

class Logging : public Scratch::Machine {
protected:
    void TearDown() override { Syslog::setDebugLevel(DebugLevel::Info); }

    static void printAll(const char* mark) {
        Syslog::error("%s: %s", mark, "e");
        Syslog::warning("%s: %s", mark, "w");
        Syslog::notice("%s: %s", mark, "n");
        Syslog::info("%s: %s", mark, "i");
        Syslog::debug("%s: %s", mark, "d");
    }
};

TEST_F(Logging, LevelDecidesWhatIsWritten) {
    const Scratch::Journal journal;
    const struct {
        DebugLevel level;
        const char* mark;
    } steps[] = {{DebugLevel::None, "none"},
                 {DebugLevel::Silent, "silent"},
                 {DebugLevel::Info, "info"},
                 {DebugLevel::Debug, "debug"}};
    for (const auto& step : steps) {
        Syslog::setDebugLevel(step.level);
        printAll(step.mark);
    }
    EXPECT_EQ(journal.lines(),
              "none: e\nnone: w\nnone: n\n"
              "info: e\ninfo: w\ninfo: n\ninfo: i\n"
              "debug: e\ndebug: w\ndebug: n\ndebug: i\ndebug: d\n");
}

TEST_F(Logging, EntriesNameTheLoggerItself) {
    const Scratch::Journal journal;
    Syslog::setDebugLevel(DebugLevel::Debug);
    printAll("fields");
    static_cast<void>(journal.lines()); // all are written now
    std::istringstream entries(Scratch::run("journalctl -q -o json -t EntriesNameTheLoggerItself"));
    std::string found;
    for (std::string line; std::getline(entries, line);) {
        Json::Value entry;
        std::istringstream(line) >> entry;
        EXPECT_EQ(entry["CODE_FILE"].asString(), "src/logger");
        found += entry["PRIORITY"].asString() + entry["CODE_LINE"].asString() + entry["CODE_FUNC"].asString() + " ";
    }
    EXPECT_EQ(found, "397error 485warning 573notice 661info 749debug ");
}

// The names of a session's processes change and their descriptors are closed; their last words must still be found.
TEST_F(Logging, RenamedChildWithoutDescriptorsIsHeardUnderTheSameName) {
    const Scratch::Journal journal;
    Syslog::info("%s: %s", "parent", "before"); // the journal's socket is open and inherited now
    const pid_t pid = ::fork();
    if (pid == 0) {
        Syslog::syslogChildOpen();
        ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
        std::fill_n(program_invocation_name, std::string(program_invocation_name).size(), ' ');
        Syslog::error("%s: %s", "child", "last words");
        ::_exit(0);
    }
    ::waitpid(pid, nullptr, 0);
    EXPECT_EQ(journal.lines(), "parent: before\nchild: last words\n");
}

TEST_F(Logging, FailedCallsAreToldAndTheirErrorIsKept) {
    const Scratch::Journal journal;
    errno = EXDEV;
    Utils::syslogErrno("func", "open", ENOENT);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(journal.lines(), "func: open failed, error: No such file or directory, code: 2\n");
}

TEST_F(Logging, EndsOfChildrenAreToldAtDebugLevelOnly) {
    const Scratch::Journal journal;
    Utils::syslogWaitStatus(0, "silent", 1);
    Syslog::setDebugLevel(DebugLevel::Debug);
    Utils::syslogWaitStatus(W_EXITCODE(3, 0), "func", 10);
    Utils::syslogWaitStatus(W_EXITCODE(0, SIGKILL) | WCOREFLAG, "func", 11);
    Utils::syslogWaitStatus(W_STOPCODE(SIGSTOP), "func", 12);
    EXPECT_EQ(journal.lines(),
              "func: child ended, pid: 10, exit code: 3\n"
              "func: child ended, pid: 11, killed by signal: 9\n"
              "func: child ended, pid: 12, status: 4991\n");
}

} // namespace
