// What the words on the command line mean.
#include "arguments.h"

#include "failure.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Vardctl {

namespace {

constexpr auto greatestId = std::numeric_limits<uint32_t>::max();
constexpr auto greatestSide = std::numeric_limits<uint16_t>::max();

bool isDigits(const std::string& word) {
    return !word.empty() && std::ranges::all_of(word, [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

uint32_t number(const std::string& word, uint32_t least, uint32_t greatest, const std::string& what) {
    uint32_t value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    const bool padded = word.size() > 1 && word[0] == '0'; // some take that for octal
    if (!isDigits(word) || padded || error != std::errc{} || stop != end || value < least || value > greatest) {
        throw Failure(ExitCode::usage, what + ": a number from " + std::to_string(least) + " to " +
                                           std::to_string(greatest) + " is needed, not `" + word + "'");
    }
    return value;
}

uint32_t sessionId(const std::string& word) { return number(word, 0, greatestId, "session id"); }

const std::string& userName(const std::string& word) {
    if (word.empty()) {
        throw Failure(ExitCode::usage, "the user's name is empty");
    }
    return word;
}

Target chooseTarget(const std::string& word, bool forceUser) {
    if (forceUser || !isDigits(word)) {
        return userName(word);
    }
    return sessionId(word);
}

Size screenSize(const std::string& word) {
    const auto cross = word.find('x');
    if (cross == std::string::npos) {
        throw Failure(ExitCode::usage, "size: WIDTHxHEIGHT is needed, as in 1280x1024, not `" + word + "'");
    }
    const auto side = [](const std::string& text, const char* what) {
        return static_cast<uint16_t>(number(text, 1, greatestSide, what));
    };
    return {side(word.substr(0, cross), "width"), side(word.substr(cross + 1), "height")};
}

std::string logLevel(const std::string& word) {
    if (word == "debug" || word == "info" || word == "none") {
        return word;
    }
    if (word == "notice") {
        return "none";
    }
    throw Failure(ExitCode::usage, word == "error" || word == "warning"
                                       ? "the service always writes errors, warnings and notices: notice is the "
                                         "quietest level"
                                       : "level: notice, info or debug is needed, not `" + word + "'");
}

} // namespace Vardctl
