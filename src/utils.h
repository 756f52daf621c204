// Strings, quoting, encodings, random bytes, the version.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace Vard {

/// The product version for a component word, as logged at the start and answered on the bus.
std::string productVersion(std::string_view component);

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

/// Lower-case hexadecimal digits of the bytes, two each, with the separator between bytes; `prefix` puts "0x" before
/// each.
std::string hexString(const std::vector<uint8_t>& bytes, std::string_view separator, bool prefix);
/// UTF-8 text of UTF-16 bytes, read most significant byte first when `bigEndian`, else least; an odd last byte is
/// dropped.
std::string bytes2unicode(const std::vector<uint8_t>& bytes, bool bigEndian);
/// UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
std::string unicode2string(std::u16string_view text);
/// UTF-8 to UTF-16; malformed sequences become U+FFFD.
std::u16string string2unicode(std::string_view text);

/// The text as valid UTF-8 without NUL bytes, malformed sequences replaced by U+FFFD: what may go on the bus, which
/// ends the process on anything else.
std::string toValidUtf8(std::string_view text);

/// `count` random bytes; within each block of 256 no value repeats.
std::vector<uint8_t> randomBytes(size_t count);

/// The machine's host name; empty when it cannot be read.
std::string getHostname();

/// Overwrites the text's memory, in a way the compiler keeps, and empties it.
void wipe(std::string& text) noexcept;
/// The same for bytes, and for every text of a list.
void wipe(std::vector<uint8_t>& bytes) noexcept;
void wipe(std::list<std::string>& texts) noexcept;

/// Wipes a value that somebody else owns, however the scope is left.
template <typename Value>
class WipeGuard {
public:
    explicit WipeGuard(Value& value) : value_(value) {}
    WipeGuard(const WipeGuard&) = delete;
    WipeGuard& operator=(const WipeGuard&) = delete;
    ~WipeGuard() { wipe(value_); }

private:
    Value& value_;
};

/// Wipes a text that the bus library, or whoever else calls, made for one call and hands over as a constant; its
/// variable is none.
class PasswordGuard : WipeGuard<std::string> {
public:
    explicit PasswordGuard(const std::string& password) : WipeGuard(const_cast<std::string&>(password)) {} // NOLINT
};

} // namespace Utils
} // namespace Vard
