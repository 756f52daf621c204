// The certificate that the transports show.
#pragma once

#include <filesystem>

namespace Doors {

/// Makes a self-signed certificate with its key below `stateDir`, where the transports look for it, unless there is
/// one. One for all and for good: clients remember it, and two transports that made theirs at once would mix up the
/// halves. Waits for the tool; a failure is logged.
void ensureCertificate(const std::filesystem::path& stateDir);

/// Writes an error line, once a minute, when one of the two cannot be read: the transports, which run as this user,
/// then end every connection without a word.
void reportUnreadable(const std::filesystem::path& stateDir);

} // namespace Doors
