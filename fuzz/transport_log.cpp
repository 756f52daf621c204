// The transport's log lines. A finding means that what the transport writes ends the connector.
#include "harness.h"

#include "transport_log.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto event = Doors::parseLogLine(Fuzz::textOf(data, size));
    Fuzz::expect(event.thread >= 0);
    return 0;
}
