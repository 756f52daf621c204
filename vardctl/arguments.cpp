// What the words on the command line mean.
#include "arguments.h"

#include "failure.h"

#include <algorithm>
#include <charconv>

namespace Vardctl {

// What is not written as numbers are is refused by the comparison.
std::optional<uint32_t> decimal(const std::string& word) {
    uint32_t value = 0;
    std::from_chars(word.data(), word.data() + word.size(), value);
    return std::to_string(value) == word ? std::optional(value) : std::nullopt;
}

const std::string& userName(const std::string& word) {
    if (word.empty()) {
        throw Failure(ExitCode::usage, "the user's name is empty");
    }
    return word;
}

Target chooseTarget(const std::string& word, bool forceUser) {
    if (forceUser || word.empty() || word.find_first_not_of("0123456789") != std::string::npos) {
        return userName(word);
    }
    if (const auto id = decimal(word)) {
        return *id;
    }
    throw Failure(ExitCode::usage, "no session id, and a user's name only with --user: " + word);
}

Size screenSize(const std::string& word) {
    Size size{0, 0};
    const char* end = word.data() + word.size();
    const auto* cross = std::from_chars(word.data(), end, size.width).ptr;
    std::from_chars(std::min(cross + 1, end), end, size.height);
    if (size.width == 0 || size.height == 0 || size.text() != word) {
        throw Failure(ExitCode::usage,
                      "size: WIDTHxHEIGHT is needed, as in 1280x1024, both from 1 to 65535, not `" + word + "'");
    }
    return size;
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
