// Bytes and other encodings as text. Programs built on these rooms are to find them here; nothing of the service calls
// them.
#include "encoding.h"

#include "text.h"

#include <array>
#include <cstdio>

namespace Vard::Utils {

std::string hexString(const std::vector<uint8_t>& bytes, std::string_view separator, bool prefix) {
    std::string result;
    for (const auto byte : bytes) {
        std::array<char, 5> text{};
        std::snprintf(text.data(), text.size(), prefix ? "0x%02x" : "%02x", byte);
        if (!result.empty()) {
            result.append(separator);
        }
        result.append(text.data());
    }
    return result;
}

std::string bytes2unicode(const std::vector<uint8_t>& bytes, bool bigEndian) {
    std::u16string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const unsigned high = bytes[bigEndian ? i : i + 1];
        const unsigned low = bytes[bigEndian ? i + 1 : i];
        text.push_back(static_cast<char16_t>(high << 8 | low));
    }
    return unicode2string(text);
}

std::string unicode2string(std::u16string_view text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t code = text[i];
        const bool highHalf = code >= 0xD800 && code <= 0xDBFF;
        if (highHalf && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
        }
        appendUtf8(result, isSurrogate(code) ? replacementCharacter : code);
    }
    return result;
}

std::u16string string2unicode(std::string_view text) {
    std::u16string result;
    for (size_t pos = 0; pos < text.size();) {
        const char32_t code = nextCode(text, pos);
        if (code < 0x10000) {
            result.push_back(static_cast<char16_t>(code));
        } else {
            result.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
            result.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        }
    }
    return result;
}

} // namespace Vard::Utils
