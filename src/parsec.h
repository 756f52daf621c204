// Mandatory labels of the PARSEC platform, loaded at run time; on any other system there are none.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace Vard::Parsec {

/// One mandatory label: confidentiality level and category mask.
struct Label {
    uint32_t level = 0;
    uint64_t categories = 0;
};

/// The range of labels that a user may work under.
struct LabelRange {
    Label min;
    Label max;
};

/// Loads the libraries if the system has them. Called once at the start, before any thread or fork, so that a forked
/// child never loads anything; later calls do nothing. Any other operation calls it when nobody has.
void load();
/// True when the libraries are there.
bool available();
/// The user's integrity level; none without the libraries or when the system knows none.
std::optional<uint32_t> userIntegrity(uid_t uid);
/// The user's label range; none as above.
std::optional<LabelRange> userLabels(uid_t uid);
/// Sets the calling process's integrity level to `ilev` and its confidentiality level, categories and type to zero.
/// Logs at info level "%s: set PARSEC MIC ilev: %u for current process, pid: %d". Without the platform: true, does
/// nothing. False when the platform refused.
bool applyIntegrity(uint32_t ilev, const char* func);

} // namespace Vard::Parsec
