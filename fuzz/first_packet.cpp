// What strangers send first: a connection request, behind a balancer's header or not. A finding means that anybody on
// the network ends the connector, or that what it hands to a transport is no request any more.
#include "harness.h"

#include "connection_request.h"
#include "proxy_header.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    if (const auto length = Doors::proxyHeaderLength(text.substr(0, Doors::proxyHeaderBegin));
        length && *length <= size) {
        (void)Doors::proxiedAddress(text.substr(0, *length), {});
    }
    if (const auto length = Doors::requestLength(text.substr(0, Doors::requestHeader))) {
        Fuzz::expect(*length <= Doors::longestRequest);
    }
    if (const auto request = Doors::parseConnectionRequest(text)) {
        Fuzz::expect(Doors::requestLength(request->packet) == request->packet.size());
        const auto again = Doors::parseConnectionRequest(request->packet);
        Fuzz::expect(again && again->user == request->user && !again->session);
        Fuzz::expect(Doors::matchUser(request->user, request->user) == Doors::UserMatch::Exact);
    }
    return 0;
}
