// The hash tool's output, which stands in a file that the session's user can write, and the connector's look at the
// line taken from it. A finding means that a user gets something other than one line into the record or the parser
// behind.
#include "harness.h"

#include "hash_line.h"
#include "session_info.h"

#include <algorithm>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    const auto line = Vard::wholeFirstLine(text);
    Fuzz::expect(text.starts_with(line));
    Fuzz::expect(line.empty() || text.compare(line.size(), 1, "\n") == 0 || text.compare(line.size(), 2, "\r\n") == 0);
    Fuzz::expect(std::ranges::none_of(line, [](char byte) { return (byte >= 0 && byte < ' ') || byte == 0x7F; }));
    const auto user = text.substr(0, text.find(':'));
    for (const auto& candidate : {line, text}) {
        if (Doors::validHashLine(candidate, user)) {
            Fuzz::expect(candidate.ends_with(":::") && candidate.find('\0', user.size()) == std::string::npos &&
                         candidate.find('\n', user.size()) == std::string::npos);
        }
    }
    return 0;
}
