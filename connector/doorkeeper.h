// A door for every session that the service opens.
#pragma once

#include "door.h"
#include "events.h"
#include "options.h"
#include "service_link.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>

namespace Doors {

/// Follows the service's signals on the event loop until stop() or the end of the bus.
class Doorkeeper : public ServiceLink::Handler, public Door::Owner {
public:
    /// Connects to the bus. Throws BusClient::Error.
    Doorkeeper(sd_event* loop, const Options& options) : loop_(loop), options_(options), service_(loop, *this) {}

    /// Ends all transports; the event loop ends with the last of them.
    void stop();

private:
    void allowConnection(uint32_t session, uint32_t uid) override;
    void listenTimeout(uint32_t seconds) override;
    void sessionShutdown(uint32_t session) override;
    void serviceStopped() override;

    void ask(uint32_t session) override;
    uint16_t choosePort(uint16_t preferred) override;
    void doorClosed(uint32_t session) override;

    void closeAll();
    [[nodiscard]] bool isUsable(uint16_t port) const;

    sd_event* loop_;
    const Options& options_;
    ServiceLink service_;
    bool stopping_ = false;
    std::optional<std::chrono::seconds> announcedLimit_;
    std::unique_ptr<EventSource> announcedTimer_;
    std::map<uint32_t, std::unique_ptr<Door>> doors_;
};

} // namespace Doors
