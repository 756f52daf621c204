// The line that the hash tool writes.
#include "hash_line.h"

#include <algorithm>

namespace Vard {

namespace {

bool isControl(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7F;
}

} // namespace

std::string wholeFirstLine(const std::string& text) {
    const size_t end = text.find('\n');
    if (end == std::string::npos) {
        return "";
    }
    std::string line = text.substr(0, end);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return std::ranges::any_of(line, isControl) ? "" : line;
}

} // namespace Vard
