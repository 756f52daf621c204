// Texts: replacing, quoting, valid UTF-8, bounds for what comes from outside.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Vard {

namespace Utils {

/// A copy of `text` with every `pattern` replaced, the search starting at the beginning again after each replacement.
/// An empty pattern returns the text unchanged. Throws std::invalid_argument when the replacement contains the pattern,
/// since such a replacement would never end.
std::string stringReplace(std::string_view text, std::string_view pattern, std::string_view replacement);
/// The same with the number printed in decimal ("%d").
std::string stringReplace(std::string_view text, std::string_view pattern, int number);

/// ASCII letters in upper (lower) case; all other bytes as they are.
std::string stringUpper(std::string_view text);
std::string stringLower(std::string_view text);

/// The text between double quotation marks, with a backslash before every quotation mark and backslash in it.
std::string stringQuoted(std::string_view text);
/// The inverse of stringQuoted; a text that does not begin with a quotation mark yields its first blank-delimited word.
std::string stringUnquoted(const std::string& text);

/// The text as valid UTF-8 without NUL bytes, malformed sequences replaced by U+FFFD: what may go on the bus, which
/// ends the process on anything else.
std::string toValidUtf8(std::string_view text);

/// What stands for a character that cannot be read.
inline constexpr char32_t replacementCharacter = 0xFFFD;
/// True for the halves of UTF-16's pairs, which are no characters.
bool isSurrogate(char32_t code);
/// Appends the character in UTF-8.
void appendUtf8(std::string& out, char32_t code);
/// The character of `text` that begins at `pos`, which is advanced; the replacement character for one malformed byte.
char32_t nextCode(std::string_view text, size_t& pos);

} // namespace Utils

/// How many bytes of `text` lie within its first `bytes` without a UTF-8 character cut in two; what is no valid UTF-8
/// is cut at `bytes`. Pure; also in a forked child.
size_t boundedLength(std::string_view text, size_t bytes) noexcept;

/// The text itself, or its beginning of that length.
std::string bounded(const std::string& text, size_t bytes);

} // namespace Vard
