// Texts: replacing, quoting, valid UTF-8, bounds for what comes from outside.
#include "text.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace Vard {

namespace {

/// How a sequence begins: its length, the bits of its first byte, and the smallest code that needs that length.
struct Lead {
    size_t length;
    char32_t bits;
    char32_t smallest;
};

Lead leadOf(unsigned char byte) {
    if (byte < 0x80) {
        return {1, byte, 0};
    }
    if ((byte & 0xE0) == 0xC0) {
        return {2, byte & 0x1FU, 0x80};
    }
    if ((byte & 0xF0) == 0xE0) {
        return {3, byte & 0x0FU, 0x800};
    }
    if ((byte & 0xF8) == 0xF0) {
        return {4, byte & 0x07U, 0x10000};
    }
    return {0, 0, 0};
}

constexpr size_t longestCharacter = 4;

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

} // namespace

namespace Utils {

std::string stringReplace(std::string_view text, std::string_view pattern, std::string_view replacement) {
    std::string result(text);
    if (pattern.empty()) {
        return result;
    }
    if (replacement.find(pattern) != std::string_view::npos) {
        throw std::invalid_argument("stringReplace");
    }
    for (size_t pos = result.find(pattern); pos != std::string::npos; pos = result.find(pattern)) {
        result.replace(pos, pattern.size(), replacement);
    }
    return result;
}

std::string stringReplace(std::string_view text, std::string_view pattern, int number) {
    return stringReplace(text, pattern, std::to_string(number));
}

std::string stringUpper(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return result;
}

std::string stringLower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return result;
}

std::string stringQuoted(std::string_view text) {
    std::ostringstream out;
    out << std::quoted(text);
    return out.str();
}

std::string stringUnquoted(const std::string& text) {
    std::istringstream in(text);
    std::string result;
    in >> std::quoted(result);
    return result;
}

bool isSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

void appendUtf8(std::string& out, char32_t code) {
    const auto byte = [&](char32_t value) { out.push_back(static_cast<char>(static_cast<unsigned char>(value))); };
    if (code < 0x80) {
        byte(code);
    } else if (code < 0x800) {
        byte(0xC0 | (code >> 6));
        byte(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        byte(0xE0 | (code >> 12));
        byte(0x80 | ((code >> 6) & 0x3F));
        byte(0x80 | (code & 0x3F));
    } else {
        byte(0xF0 | (code >> 18));
        byte(0x80 | ((code >> 12) & 0x3F));
        byte(0x80 | ((code >> 6) & 0x3F));
        byte(0x80 | (code & 0x3F));
    }
}

char32_t nextCode(std::string_view text, size_t& pos) {
    const Lead lead = leadOf(static_cast<unsigned char>(text[pos]));
    char32_t code = lead.bits;
    size_t used = 1;
    while (used < lead.length && pos + used < text.size() && continues(text[pos + used])) {
        code = (code << 6) | (static_cast<unsigned char>(text[pos + used]) & 0x3FU);
        ++used;
    }
    const bool valid =
        lead.length != 0 && used == lead.length && code >= lead.smallest && code <= 0x10FFFF && !isSurrogate(code);
    pos += valid ? used : 1;
    return valid ? code : replacementCharacter;
}

std::string toValidUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t pos = 0; pos < text.size();) {
        const char32_t code = nextCode(text, pos);
        appendUtf8(result, code == 0 ? replacementCharacter : code);
    }
    return result;
}

} // namespace Utils

size_t boundedLength(std::string_view text, size_t bytes) noexcept {
    if (text.size() <= bytes) {
        return text.size();
    }
    for (size_t length = bytes; length > 0 && bytes - length < longestCharacter; --length) {
        if (!continues(text[length])) {
            return length;
        }
    }
    return bytes;
}

std::string bounded(const std::string& text, size_t bytes) { return text.substr(0, boundedLength(text, bytes)); }

} // namespace Vard
