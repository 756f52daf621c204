// What the tests of single rooms need beside the machine that they share with the system tests: a directory to work in
// and the lines that the room logs.
#pragma once

#include "logger.h"
#include "machine.h"

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Scratch {

using Test::exists, Test::readFile, Test::requireSandbox, Test::waitUntil, Test::writeFile;

/// A directory below /tmp that goes with everything in it.
class Directory {
public:
    Directory() {
        char name[] = "/tmp/vard-test-XXXXXX";
        path_ = ::mkdtemp(name) != nullptr ? name : throw std::runtime_error("mkdtemp");
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    std::filesystem::path write(const std::string& name, const std::string& bytes) const {
        writeFile(path_ / name, bytes);
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

/// The output of a shell command; throws when it fails, so that no test goes on without what it prepares.
inline std::string run(const std::string& command) { return Test::mustRun(command); }

/// A child that sleeps, in a directory.
inline pid_t startSleep(const char* seconds = "1000", const std::string& directory = "/") {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::_exit(::chdir(directory.c_str()) == 0 ? ::execlp("sleep", "sleep", seconds, nullptr) : 127);
    }
    return pid;
}

/// For tests that need root and change the machine. A suite that prepares something calls this SetUpTestSuite first: it
/// throws anywhere but on a throw-away machine, so that nothing is prepared and no test of the suite runs.
class Machine : public testing::Test {
protected:
    static void SetUpTestSuite() { requireSandbox(); }
};

/// Logs under a name of the running test's own, so that its lines can be told from all others.
class Journal {
public:
    /// All lines so far; waits until journald has written them.
    [[nodiscard]] std::string lines() const { return run("journalctl --sync && journalctl -q -o cat -t " + name_); }

private:
    std::string name_ = testing::UnitTest::GetInstance()->current_test_info()->name();
    Vard::Syslog log_{name_.c_str()};
};

} // namespace Scratch
