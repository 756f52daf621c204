// The supervisor of a session's program: a forked child of the service, named "vard_manager".
#pragma once

#include "process.h"
#include "session.h"

#include <csignal>
#include <filesystem>
#include <list>
#include <string>

namespace Vard {

/// Blocks, on the calling thread and while the object lives, the signals that the supervisor takes one by one.
class SupervisorSignals {
public:
    SupervisorSignals();
    ~SupervisorSignals();
    SupervisorSignals(const SupervisorSignals&) = delete;
    SupervisorSignals& operator=(const SupervisorSignals&) = delete;

    /// SIGTERM and SIGCHLD.
    static sigset_t set();

private:
    sigset_t before_{};
};

/// The supervisor's whole life, in a freshly forked child that is still root: opens the PAM session, starts the program
/// as the user, gives up root, and waits. SIGTERM, the program's end, or the end of `service` (the process that forked
/// it) ends everything that the program left behind. Never returns and never runs a destructor of the service; its exit
/// status tells how the program ended.
[[noreturn]] void superviseSession(const Session& session, const Identity& identity,
                                   const std::filesystem::path& program, const std::list<std::string>& args,
                                   pid_t service) noexcept;

} // namespace Vard
