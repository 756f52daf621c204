// The system bus on the event loop.
#pragma once

#include "bus_client/connection.h"
#include "loop.h"

namespace Doors {

/// Hands out what comes on a connection to the bus as long as the object lives, on the loop's thread.
class BusSource {
public:
    /// Both must outlive it. `lost` is called once when the connection is.
    BusSource(asio::io_context& loop, BusClient::Connection& bus, std::function<void()> lost);
    ~BusSource();
    BusSource(const BusSource&) = delete;
    BusSource& operator=(const BusSource&) = delete;

    /// To be called after something was sent outside of what comes.
    void sent() { watch(); }

private:
    void handOut();
    void watch();
    void waitFor(Descriptor::wait_type what, bool& waiting);

    BusClient::Connection& bus_;
    std::function<void()> lost_;
    Descriptor descriptor_;
    Timer timer_;
    bool reading_ = false;
    bool writing_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Doors
