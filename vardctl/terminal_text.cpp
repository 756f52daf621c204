// Texts as a terminal may see them.
#include "terminal_text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace Vardctl {

namespace {

/// A character at the start of a text; a size of 0 means that it is none.
struct Character {
    wchar_t value = 0;
    size_t size = 0;
};

Character decode(std::string_view text) {
    Character result;
    std::mbstate_t state{};
    const size_t size = std::mbrtowc(&result.value, text.data(), text.size(), &state);
    constexpr auto broken = static_cast<size_t>(-2); // and -1 beyond it
    return size < broken ? Character{result.value, std::max<size_t>(size, 1)} : Character{};
}

// The one-byte and the two-byte control characters, the line separators, and what turns the direction of reading.
bool steersTerminal(wchar_t value) {
    constexpr std::array<std::pair<wchar_t, wchar_t>, 7> ranges{{{0x00, 0x1F},
                                                                 {0x7F, 0x9F},
                                                                 {0x061C, 0x061C},
                                                                 {0x200B, 0x200F},
                                                                 {0x2028, 0x202E},
                                                                 {0x2060, 0x206F},
                                                                 {0xFEFF, 0xFEFF}}};
    return std::ranges::any_of(ranges,
                               [&](const auto& range) { return value >= range.first && value <= range.second; });
}

std::string escaped(std::string_view bytes) {
    constexpr std::string_view shortForms = "\nn\tt\rr\\\\";
    if (bytes.size() == 1) {
        for (size_t i = 0; i < shortForms.size(); i += 2) {
            if (bytes[0] == shortForms[i]) {
                return {'\\', shortForms[i + 1]};
            }
        }
    }
    std::string result;
    for (const char byte : bytes) {
        std::array<char, 5> code{};
        std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned char>(byte));
        result += code.data();
    }
    return result;
}

} // namespace

bool useUtf8() { return std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr; }

std::string harmless(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto character = decode(text);
        const auto bytes = text.substr(0, std::max<size_t>(character.size, 1));
        const bool shown = character.size > 0 && character.value != '\\' && !steersTerminal(character.value);
        result += shown ? std::string(bytes) : escaped(bytes);
        text.remove_prefix(bytes.size());
    }
    return result;
}

size_t columns(std::string_view text) {
    size_t result = 0;
    while (!text.empty()) {
        const auto character = decode(text);
        const int width = ::wcwidth(character.value);
        result += width < 0 ? 1U : static_cast<size_t>(width);
        text.remove_prefix(std::max<size_t>(character.size, 1));
    }
    return result;
}

std::string ageText(uint32_t seconds) {
    const uint32_t minutes = seconds / 60;
    const uint32_t hours = minutes / 60;
    const auto two = [](uint32_t great, const char* unit, uint32_t small, const char* smallUnit) {
        return std::to_string(great) + unit + std::to_string(small) + smallUnit;
    };
    if (minutes == 0) {
        return std::to_string(seconds) + "s";
    }
    if (hours == 0) {
        return two(minutes, "min", seconds % 60, "s");
    }
    return hours < 24 ? two(hours, "h", minutes % 60, "min") : two(hours / 24, "d", hours % 24, "h");
}

} // namespace Vardctl
