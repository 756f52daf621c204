// Starting a program under a user's identity: the parent's half.
#pragma once

#include "identity.h"
#include "process_child.h"

#include <sys/types.h>

#include <filesystem>
#include <list>
#include <string>
#include <vector>

namespace Vard {

/// The argument vector of a program: its path, the arguments, a null. The strings must outlive it.
std::vector<char*> createARGV(const std::string& program, const std::list<std::string>& args);
/// The environment vector of NAME=value strings, in order, ended by a null. The strings must outlive it.
std::vector<char*> createENVP(const std::list<std::string>& environment);

namespace Utils {

/// Starts `program` as `user` in a session of its own, with `environment` on top of the identity's variables (later
/// entries win) and standard input from /dev/null. Default signals but SIGINT and SIGHUP ignored, no descriptor
/// inherited: they are closed before anything of the user's is touched. Returns the child's pid, which the caller must
/// wait for. Logs and throws vard_error when the program does not exist, the user is unknown or fork fails. A child
/// that cannot become the user, or cannot execute the program, ends with a non-zero status.
pid_t runChildProcess(const std::filesystem::path& program, const std::list<std::string>& args, const std::string& user,
                      const std::list<std::string>& environment, const ChildOptions& options = {});
/// The same for an identity that was looked up before; what runs between fork and exec touches no database.
pid_t runChildProcess(const std::filesystem::path& program, const std::list<std::string>& args,
                      const Identity& identity, const std::list<std::string>& environment,
                      const ChildOptions& options = {});

} // namespace Utils
} // namespace Vard
