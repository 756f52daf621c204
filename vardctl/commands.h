// The subcommands. Each connects to the bus, prints its result to standard output, and throws Failure.
#pragma once

#include "options.h"

namespace Vardctl {

/// All sessions, as a table or JSON.
void listSessions(const Options& options);
/// All that is known of one session, or of those of a user; password hashes only when asked for.
void showSessions(const Options& options);
/// The processes of a session's user.
void listProcesses(const Options& options);
/// The names of the published programs.
void listPrograms(const Options& options);
/// The address of a user's session bus.
void showAddress(const Options& options);
/// The service's version, the machine's load in percent, the numbers of sessions.
void showStatus(const Options& options);

/// Reads a password, starts or finds a user's desktop session, and prints its id.
void login(const Options& options);
/// The same for a session with a published program.
void runProgram(const Options& options);
/// Shows a message to a session's user.
void notify(const Options& options);
/// Sets a session's limits of age and idleness, in seconds.
void setLimits(const Options& options);
/// Changes the size of a session's screen; fails when it has another one afterwards.
void resize(const Options& options);
/// Ends the connection of a session's client.
void disconnect(const Options& options);
/// Tells a session to end, and does not wait for it.
void shutdownSession(const Options& options);

/// Sets how much the service logs.
void setLogLevel(const Options& options);
/// Tells the service to end with all its sessions, and does not wait for it.
void stopService(const Options& options);

/// Looks at the machine and the service's files; prints a line for each finding, and fails when there is an error.
void checkMachine(const Options& options);

/// Prints the service's signals until SIGINT or SIGTERM.
void watch(const Options& options);

} // namespace Vardctl
