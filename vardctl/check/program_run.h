// Programs that a look runs.
#pragma once

#include "deadline.h"
#include "file_descriptor.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace Vardctl {

/// A user id that is nobody's: what runs under it owns nothing, and nobody can do anything to it.
uid_t strangerId();

/// A program that runs, with both outputs in a pipe; killed at the latest when the object goes, or the look.
class RunningProgram {
public:
    /// Starts it in this process's group with an environment that names the usual directories; as `user` alone,
    /// without groups, unless that is root. `input` is its standard input.
    explicit RunningProgram(const std::vector<std::string>& command, uid_t user = 0, const std::string& input = {});
    /// Kills it.
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// Waits until it has ended, or until the deadline, and keeps what it writes; true when it has ended.
    bool endedBy(const Vard::Deadline& deadline);
    /// True when it has ended with status 0.
    [[nodiscard]] bool succeeded() const { return status_ == 0; }
    /// How it ended, in words.
    [[nodiscard]] std::string end() const;
    /// True when it never became a program that works, as without one of its libraries.
    [[nodiscard]] bool failedToRun() const;
    /// What it has written; most of it, if that is much.
    [[nodiscard]] const std::string& output() const { return output_; }

private:
    void collect();

    pid_t pid_ = -1;
    Vard::FileDescriptor outputEnd_;
    std::optional<int> status_;
    std::string output_;
};

/// What a program of the system's writes; none when it cannot be run, fails, or takes more than five seconds.
std::optional<std::string> outputOf(const std::vector<std::string>& command, uid_t user = 0,
                                    const std::string& input = {});

} // namespace Vardctl
