// The service's answers as vardctl reads and shows them. A finding means that a user's texts in an answer end the
// administrator's command, or steer his terminal.
#include "harness.h"

#include "failure.h"
#include "json.h"
#include "terminal_text.h"

#include <algorithm>

namespace {

bool steers(char byte) { return (byte >= 0 && byte < ' ') || byte == 0x7F; }

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool utf8 = Vardctl::useUtf8();
    Fuzz::expect(utf8);
    const auto text = Fuzz::textOf(data, size);
    const auto shown = Vardctl::harmless(text);
    Fuzz::expect(std::ranges::none_of(shown, steers) && shown.size() >= text.size());
    Fuzz::expect(Vardctl::columns(shown) <= shown.size());
    try {
        auto line = Vardctl::jsonLine(Vardctl::parseJson(text));
        Fuzz::expect(line.ends_with('\n'));
        line.pop_back();
        Fuzz::expect(std::ranges::none_of(line, steers));
    } catch (const Vardctl::Failure&) { // no JSON
    }
    return 0;
}
