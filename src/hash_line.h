// How the hash tool is called, and the line that it writes.
#pragma once

#include <list>
#include <string>

namespace Vard {

/// The hash tool's arguments, the password among them, which is the caller's to wipe; the domain counts in version 2
/// (`ntlmv2`) only.
std::list<std::string> hashToolArguments(const std::string& user, const std::string& domain,
                                         const std::string& password, bool ntlmv2);

/// The first line of the hash tool's output, without its end ("\n" or "\r\n"), when it is whole: ended by a newline,
/// not empty and without control characters, NUL among them; else empty. A tool that had no room left, or was ended,
/// leaves a part of a line. Never throws for what stands in the text. Any thread.
std::string wholeFirstLine(const std::string& text);

} // namespace Vard
