// The session's text that the connector asks the service for. A finding means that a user's name or file name, which
// stand in it, end the connector, and with it every connection.
#include "harness.h"

#include "json_writer.h"
#include "session_info.h"
#include "text.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    if (const auto session = Doors::parseSessionInfo(text)) {
        Doors::validHashLine(session->hashLine, session->username);
    }
    const auto name = Vard::Utils::toValidUtf8(text); // as the service writes it, it is to come back
    Vard::ObjectWriter json;
    json.text("username", name);
    json.number("display", 33);
    json.text("xauthfile", name);
    json.text("ntlm", "");
    const auto session = Doors::parseSessionInfo(json.finish());
    Fuzz::expect(session && session->username == name && session->xauthfile == name && session->display == 33);
    return 0;
}
