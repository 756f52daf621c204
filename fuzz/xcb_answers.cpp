// An X server's answers to all that the service asks it. A finding means that a user, whose program may stand in the X
// server's place, can end or stall the service, or make it read beyond an answer.
#include "x_server.h"

#include "exceptions.h"
#include "screen_mode.h"
#include "window_fitting.h"

#include <string_view>
#include <vector>

namespace {

void copyPixels(Vard::Xcb::Connector& client, uint16_t edge) {
    std::vector<uint8_t> pixels(256);
    try {
        const auto info = client.copyWindowPixmapTo(1, {0, 0, edge, edge}, pixels.data(), pixels.size());
        Fuzz::expect(info.bytes <= pixels.size());
    } catch (const Vard::xcb_error&) { // refused, or too many
    }
}

void ask(Vard::Xcb::Connector& client, unsigned what) {
    switch (what % 6) {
        case 0:
            Vard::fitWindows(client);
            break;
        case 1:
            Vard::chooseScreenMode(client.getScreenSizes(), {1280, 1024});
            break;
        case 2:
            copyPixels(client, 8);
            break;
        case 3:
            copyPixels(client, 65535);
            break;
        case 4:
            client.getWindowName(client.getPropertyWindow(1, 1));
            break;
        default:
            client.setWindowGeometry(1, 0, 0, 10, 10);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    Vard::FileDescriptor server;
    const auto answers = Fuzz::packets(std::string_view(reinterpret_cast<const char*>(data), size).substr(1));
    const auto client = Fuzz::clientOf(Fuzz::plainSetup() + Fuzz::extensionAnswer() + answers, server);
    Fuzz::expect(client != nullptr);
    ask(*client, data[0]);
    ask(*client, data[0] / 6U);
    Vard::logWindows(*client, {});
    client->answers();
    return 0;
}
