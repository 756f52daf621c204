// The command line of vard_notify.
#include "arguments.h"

#include "text.h"

#include <charconv>
#include <map>
#include <stdexcept>

namespace Vard {

namespace {

constexpr size_t largestTitle = 256; // bytes
constexpr size_t largestText = 4096; // bytes

using Options = std::map<std::string, std::string>;

Options readOptions(const std::vector<std::string>& args) {
    if (args.size() != 6) {
        throw std::invalid_argument("--header, --message and --level are needed, each with a value");
    }
    Options options;
    for (size_t i = 0; i < args.size(); i += 2) {
        const auto& name = args[i];
        if (name != "--header" && name != "--message" && name != "--level") {
            throw std::invalid_argument("unknown option");
        }
        if (!options.emplace(name, args[i + 1]).second) {
            throw std::invalid_argument("repeated option: " + name);
        }
    }
    return options;
}

std::string cut(std::string text, size_t largest) {
    if (text.size() > largest) {
        size_t end = largest;
        while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
            --end;
        }
        text.resize(end);
        text += "…";
    }
    return text;
}

// A broken quotation is read as something else without an error, but does not come back when quoted again.
std::string readText(const Options& options, const std::string& name, size_t largest) {
    const auto& quoted = options.at(name);
    const auto text = Utils::stringUnquoted(quoted);
    if (Utils::stringQuoted(text) != quoted) {
        throw std::invalid_argument("no quoted text after " + name);
    }
    return cut(Utils::toValidUtf8(text), largest);
}

uint8_t readLevel(const std::string& text) {
    uint8_t level = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, level);
    if (result.ec != std::errc{} || result.ptr != end) {
        throw std::invalid_argument("the level is no number from 0 to 255");
    }
    return level;
}

} // namespace

Notice parseNotice(const std::vector<std::string>& args) {
    const auto options = readOptions(args);
    Notice notice{readText(options, "--header", largestTitle), readText(options, "--message", largestText),
                  readLevel(options.at("--level"))};
    if (notice.title.empty()) {
        notice.title = "Message";
    }
    return notice;
}

} // namespace Vard
