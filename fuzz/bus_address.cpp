// A session bus address file, which lies in the user's home. A finding means that a user ends the service, or that more
// than one line of his file gets into an answer.
#include "harness.h"

#include "bus_address.h"
#include "text.h"

#include <dbus/dbus.h>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    if (const auto address = Vard::busAddressIn(text)) {
        Fuzz::expect(address->find('\n') == std::string::npos && text.find(*address) != std::string::npos);
        const auto answer = Vard::Utils::toValidUtf8(*address);
        Fuzz::expect(::dbus_validate_utf8(answer.c_str(), nullptr) != 0 && answer.size() >= address->size());
    }
    return 0;
}
