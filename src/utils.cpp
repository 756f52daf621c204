// Strings, quoting, encodings, random bytes, the version.
#include "utils.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <iomanip>
#include <numeric>
#include <random>
#include <sstream>
#include <stdexcept>

namespace Vard {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

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

bool isSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

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

// The next code point of `text` from `pos` on, which is advanced; the replacement character for one malformed byte.
char32_t nextCode(std::string_view text, size_t& pos) {
    const Lead lead = leadOf(static_cast<unsigned char>(text[pos]));
    char32_t code = lead.bits;
    size_t used = 1;
    while (used < lead.length && pos + used < text.size() &&
           (static_cast<unsigned char>(text[pos + used]) & 0xC0) == 0x80) {
        code = (code << 6) | (static_cast<unsigned char>(text[pos + used]) & 0x3FU);
        ++used;
    }
    const bool valid =
        lead.length != 0 && used == lead.length && code >= lead.smallest && code <= 0x10FFFF && !isSurrogate(code);
    pos += valid ? used : 1;
    return valid ? code : replacementCharacter;
}

} // namespace

std::string productVersion(std::string_view component) {
    std::string result = "VARD ";
    result.append(component).append(" v.0.3.rel2 build(202306200649)");
    return result;
}

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

std::string toValidUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t pos = 0; pos < text.size();) {
        const char32_t code = nextCode(text, pos);
        appendUtf8(result, code == 0 ? replacementCharacter : code);
    }
    return result;
}

// Drawn by permutation, not byte by byte: a cookie never holds a value twice.
std::vector<uint8_t> randomBytes(size_t count) {
    std::array<uint8_t, 256> table{};
    std::iota(table.begin(), table.end(), uint8_t{0});
    std::vector<uint8_t> result;
    while (result.size() < count) {
        std::random_device device;
        std::mt19937 generator(device());
        std::shuffle(table.begin(), table.end(), generator);
        const auto length = static_cast<std::ptrdiff_t>(std::min(count - result.size(), table.size()));
        result.insert(result.end(), table.begin(), table.begin() + length);
    }
    return result;
}

std::string getHostname() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

void wipe(std::string& text) noexcept {
    ::explicit_bzero(text.data(), text.capacity());
    text.clear();
}

void wipe(std::list<std::string>& texts) noexcept {
    for (auto& text : texts) {
        wipe(text);
    }
}

void wipe(std::vector<uint8_t>& bytes) noexcept {
    if (!bytes.empty()) { // an empty one has no place
        ::explicit_bzero(bytes.data(), bytes.size());
    }
    bytes.clear();
}

} // namespace Utils
} // namespace Vard
