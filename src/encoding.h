// Bytes and other encodings as text. Programs built on these rooms are to find them here; nothing of the service calls
// them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vard::Utils {

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

} // namespace Vard::Utils
