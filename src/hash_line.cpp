// How the hash tool is called, and the line that it writes.
#include "hash_line.h"

#include "text.h"

#include <algorithm>

namespace Vard {

namespace {

bool isControl(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7F;
}

} // namespace

std::list<std::string> hashToolArguments(const std::string& user, const std::string& domain,
                                         const std::string& password, bool ntlmv2) {
    std::list<std::string> args{"-f", "sam", "-u", user, "-p"};
    args.emplace_back(password); // not in the braces, which would leave a copy behind
    if (ntlmv2) {
        args.insert(args.end(), {"-d", Utils::stringUpper(domain), "-v", "2"});
    } else {
        args.insert(args.end(), {"-v", "1"});
    }
    return args;
}

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
