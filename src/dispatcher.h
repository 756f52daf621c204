// The bus loop of the process.
#pragma once

#include "file_descriptor.h"

#include <dbus-c++/dbus.h>

#include <atomic>

namespace Vard {

/// A dispatcher that may be left and woken from any thread at any time: before it was entered, twice, or while it
/// waits. The library's own loses a leave() that comes before enter(), and closes its pipe under the feet of other
/// threads.
class ServiceDispatcher : public DBus::BusDispatcher {
public:
    ServiceDispatcher();

    /// Runs the loop on the calling thread until leave().
    void enter() override;
    /// Ends the loop, now or at its next start. Any thread, any number of times.
    void leave() override;
    /// Makes a waiting loop look again: what another thread could not write to the bus at once goes out then. Any
    /// thread.
    void wake() noexcept;

    /// Remembers the socket of the bus connection.
    DBus::Watch* add_watch(DBus::Watch::Internal* internal) override;
    /// True when the bus has closed the connection: the library may not have noticed, as long as it has something left
    /// to send. Any thread.
    [[nodiscard]] bool hungUp() const noexcept;
    /// Takes the connection from the bus, whoever else holds a copy of its socket: its names are free at once. Main
    /// thread, after the loop has ended.
    void hangUp() noexcept;

private:
    void drain() noexcept;

    std::atomic<bool> leaving_{false};
    FileDescriptor busSocket_; // a copy, valid however the library's ends
};

/// The one dispatcher of the process.
extern ServiceDispatcher serviceDispatcher;

} // namespace Vard
