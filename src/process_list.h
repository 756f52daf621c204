// The processes of a user, as the kernel shows them.
#pragma once

#include <sys/types.h>

#include <string>

namespace Vard {

/// A JSON array of {"pid","cmd"}, one object per process of that user, "cmd" being its executable; empty where the
/// kernel shows none. Processes that end meanwhile are passed over, with an error line. What exceeds a bus message is
/// left out, with a warning. The bytes of a path are as the user chose them. Any thread. Logs under `func`.
std::string processesJson(uid_t uid, const char* func);

} // namespace Vard
