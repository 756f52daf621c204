// The transport's log lines. A finding means that what the transport writes ends the connector, or that something other
// than an address is taken for a client's.
#include "harness.h"

#include "transport_log.h"

namespace {

bool isPlain(const std::string& address) {
    return address.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto line = Fuzz::textOf(data, size);
    const auto event = Doors::parseLogLine(line);
    Fuzz::expect(isPlain(event.address) && event.thread >= 0);
    Fuzz::expect(event.kind == Doors::LogEvent::Activated || (event.address.empty() && event.thread == 0));
    Fuzz::expect(isPlain(Doors::plainAddress(line)));
    return 0;
}
