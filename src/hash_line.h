// The line that the hash tool writes.
#pragma once

#include <string>

namespace Vard {

/// The first line of the hash tool's output, without its end ("\n" or "\r\n"), when it is whole: ended by a newline,
/// not empty and without control characters, NUL among them; else empty. A tool that had no room left, or was ended,
/// leaves a part of a line. Never throws for what stands in the text. Any thread.
std::string wholeFirstLine(const std::string& text);

} // namespace Vard
