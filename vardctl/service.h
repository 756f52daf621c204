// The service as the command calls it.
#pragma once

#include "bus_client/connection.h"
#include "failure.h"

#include <array>

namespace Vardctl {

/// A connection to the service, with the times that its answers may take.
class Service : public BusClient::Connection {
public:
    /// Calls what only asks.
    template <typename... Args>
    BusClient::Message query(const char* method, const char* types = "", Args... args) {
        return call(method, std::chrono::seconds(10), types, args...);
    }
    /// Calls what starts, changes or ends something.
    template <typename... Args>
    BusClient::Message act(const char* method, const char* types = "", Args... args) {
        return call(method, std::chrono::seconds(60), types, args...);
    }
};

/// The files that close this machine for new sessions, as PAM's module looks for them.
inline constexpr std::array<const char*, 2> closingFiles{"/etc/nologin", "/run/nologin"};
/// The one of them that does; null while it is open.
const char* closedBy();

/// What an error of the bus means to the user, who asked for the subcommand `command`.
Failure busFailure(const BusClient::Error& error, const std::string& command);

} // namespace Vardctl
