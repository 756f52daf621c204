// What an X server says of itself, through a real connection. A finding means that a user, whose program may stand in
// the X server's place, can end the service or make it read beyond the setup.
#include "x_server.h"

#include "xcb_setup.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto setup = Fuzz::textOf(data, size);
    Vard::Xcb::setupHolds(setup);
    if (setup.size() >= 8 && setup.size() % 4 == 0 && setup.size() < 65536) { // the length told is the true one
        const auto units = static_cast<uint16_t>((setup.size() - 8) / 4);
        std::memcpy(setup.data() + 6, &units, sizeof units);
    }
    Vard::FileDescriptor server;
    const auto client = Fuzz::clientOf(setup + Fuzz::extensionAnswer(), server);
    if (!client) {
        return 0;
    }
    Fuzz::expect(client->bitsPerPixel() > 0 && client->findFormat(client->depth()) != nullptr);
    Fuzz::expect(client->bppFromDepth(client->depth()) == client->bitsPerPixel());
    Fuzz::expect(client->depthFromBpp(0) == 0);
    for (const xcb_visualid_t id : {0U, 1U, ~0U}) {
        const auto* visual = client->findVisual(id);
        Fuzz::expect(visual == nullptr || visual->visual_id == id);
    }
    return 0;
}
