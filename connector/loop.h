// The event loop's types.
#pragma once

#include <utility> // the library forgets it

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <memory>

namespace Doors {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;
using Address = asio::ip::address;
using Failed = boost::system::error_code;
using Descriptor = asio::posix::stream_descriptor;

/// Calls something once after a time. It is not called after cancel(), nor when the object has gone; it may destroy the
/// object. On the loop's thread.
class Timer {
public:
    /// Not set. The loop must outlive it.
    explicit Timer(asio::io_context& loop) : timer_(loop) {}

    /// From now on; what was set before is forgotten.
    void start(std::chrono::milliseconds time, std::function<void()> run) {
        timer_.expires_after(time);
        const auto mine = token_ = std::make_shared<bool>(true);
        timer_.async_wait([run = std::move(run), alive = std::weak_ptr(mine)](Failed failed) {
            if (!failed && !alive.expired()) {
                run();
            }
        });
    }
    void cancel() {
        token_.reset();
        timer_.cancel();
    }

private:
    asio::steady_timer timer_;
    std::shared_ptr<bool> token_; ///< gone: a call that was on its way already does nothing
};

} // namespace Doors
