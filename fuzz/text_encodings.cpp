// Texts of callers and users on their way to the bus. A finding means that a text which the bus refuses, and ends the
// service for, gets through, or that a text is not what it was.
#include "harness.h"

#include "encoding.h"
#include "text.h"

#include <dbus/dbus.h>

#include <vector>

using namespace Vard;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    const auto valid = Utils::toValidUtf8(text);
    Fuzz::expect(valid.find('\0') == std::string::npos && ::dbus_validate_utf8(valid.c_str(), nullptr) != 0);
    Fuzz::expect(Utils::toValidUtf8(valid) == valid);
    const bool wasValid = text.find('\0') == std::string::npos && ::dbus_validate_utf8(text.c_str(), nullptr) != 0;
    Fuzz::expect(!wasValid || valid == text);
    Fuzz::expect(Utils::unicode2string(Utils::string2unicode(valid)) == valid);
    for (const bool bigEndian : {false, true}) {
        const auto decoded = Utils::bytes2unicode(std::vector<uint8_t>(data, data + size), bigEndian);
        Fuzz::expect(Utils::unicode2string(Utils::string2unicode(decoded)) == decoded);
    }
    Fuzz::expect(Utils::stringUnquoted(Utils::stringQuoted(text)) == text);
    Utils::stringUnquoted(text);
    Fuzz::expect(Utils::stringLower(Utils::stringUpper(text)) == Utils::stringLower(text));
    return 0;
}
