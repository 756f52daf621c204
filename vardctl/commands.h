// The subcommands. Each connects to the bus, prints its result to standard output, and throws Failure.
#pragma once

#include "options.h"

namespace Vardctl {

void listSessions(const Options& options);
void showSessions(const Options& options);
void listProcesses(const Options& options);
void listPrograms(const Options& options);
void showAddress(const Options& options);
void showStatus(const Options& options);

void login(const Options& options);
void runProgram(const Options& options);
void notify(const Options& options);
void setLimits(const Options& options);
void resize(const Options& options);
void disconnect(const Options& options);
void shutdownSession(const Options& options);

void setLogLevel(const Options& options);
void stopService(const Options& options);

/// Prints the service's signals until SIGINT or SIGTERM.
void watch(const Options& options);

} // namespace Vardctl
