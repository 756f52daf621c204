// Bounds for texts that come from outside.
#include "caller_text.h"

namespace Vard {

namespace {

constexpr size_t longestCharacter = 4;

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

} // namespace

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
