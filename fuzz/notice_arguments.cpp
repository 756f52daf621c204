// The texts of a notice on vard_notify's command line, which come from the service's callers. A finding means that a
// notice ends the program that shows it, or hands the drawing library what is no text.
#include "harness.h"

#include "notify/arguments.h"

#include <dbus/dbus.h>

#include <stdexcept>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    const size_t half = text.find('\n');
    const auto rest = half == std::string::npos ? text : text.substr(half + 1);
    try {
        const auto notice =
            Vard::parseNotice({"--header", text.substr(0, half), "--message", rest, "--level", rest.substr(0, 3)});
        Fuzz::expect(!notice.title.empty());
        Fuzz::expect(::dbus_validate_utf8(notice.title.c_str(), nullptr) != 0);
        Fuzz::expect(::dbus_validate_utf8(notice.text.c_str(), nullptr) != 0);
    } catch (const std::invalid_argument&) { // no notice
    }
    return 0;
}
