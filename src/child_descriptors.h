// Which of the service's descriptors a forked child keeps.
#pragma once

namespace Vard::Utils {

/// Finds the journal's socket among the open descriptors and remembers it for the children forked from now on. Any
/// thread.
void rememberJournalSocket() noexcept;
/// Closes every descriptor above standard error in a forked child, but for the journal's, so that its log lines still
/// arrive, and `keep`. Before a child touches anything of a user's: a file system of the user's own can hold it for
/// ever, with all that it still has open.
void closeInheritedDescriptors(int keep = -1) noexcept;

} // namespace Vard::Utils
