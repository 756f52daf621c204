// The supervisor of a session's program: a forked child of the service, named "vard_manager".
#pragma once

#include "identity.h"
#include "session.h"

#include <csignal>
#include <filesystem>
#include <list>
#include <string>

namespace Vard {

/// Keeps a stop signal from the fork until the supervisor takes it up: blocks SIGTERM and SIGCHLD on the calling thread
/// while the object lives.
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
/// as the user, gives up root, and waits. It ends with the program, at SIGTERM after the program was ended. What is
/// left then is adopted by `service` (the process that forked it); when that has gone, the supervisor ends it itself.
/// Never returns and never runs a destructor of the service; its exit status tells how the program ended.
[[noreturn]] void superviseSession(const Session& session, const Identity& identity,
                                   const std::filesystem::path& program, const std::list<std::string>& args,
                                   pid_t service) noexcept;

} // namespace Vard
