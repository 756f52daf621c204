// What the tests of rooms that work on files share: a directory to work in, commands, the journal.
#pragma once

#include "logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Scratch {

/// A directory below /tmp that goes with everything in it.
class Directory {
public:
    Directory() {
        char name[] = "/tmp/vard-test-XXXXXX";
        if (::mkdtemp(name) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        path_ = name;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    std::filesystem::path write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path_ / name, std::ios::binary) << bytes;
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

/// The output of a shell command; throws when it fails, so that no test goes on without what it prepares.
inline std::string run(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error(command);
    }
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output.push_back(static_cast<char>(c));
    }
    if (::pclose(pipe) != 0) {
        throw std::runtime_error(command + ": " + output);
    }
    return output;
}

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
    static void SetUpTestSuite() {
        if (std::getenv("VARD_SANDBOX") == nullptr) {
            throw std::runtime_error("needs root on a throw-away machine: run it in scripts/sandbox");
        }
    }
};

/// Logs under a name of the running test's own, so that its lines can be told from all others.
class Journal {
public:
    Journal() : name_(testing::UnitTest::GetInstance()->current_test_info()->name()), log_(name_.c_str()) {}

    /// All lines so far; waits until journald has written them.
    [[nodiscard]] std::string lines() const { return run("journalctl --sync && journalctl -q -o cat -t " + name_); }

private:
    std::string name_;
    Vard::Syslog log_;
};

} // namespace Scratch
