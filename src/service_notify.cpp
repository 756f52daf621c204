// Notices to users.
#include "dbus_service.h"

#include "bus_boundary.h"

namespace Vard {

bool DBusService::vardSendNotify(const uint32_t& session, const std::string& header, const std::string& message,
                                 const uint8_t& urgency) {
    static_cast<void>(session);
    static_cast<void>(header);
    static_cast<void>(message);
    static_cast<void>(urgency);
    throw not_supported("vardSendNotify");
}

} // namespace Vard
