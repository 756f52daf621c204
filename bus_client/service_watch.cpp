// What the service tells: its coming, its going, its signals.
#include "service_watch.h"

namespace BusClient {

namespace {
constexpr const char* busDaemon = "org.freedesktop.DBus";
constexpr const char* ownerChanges =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='ru.korvex.vard'";
} // namespace

ServiceWatch::ServiceWatch(Connection& bus, Handler& handler) : handler_(handler) {
    bus.subscribe(ownerChanges, [this](Message& message) { ownerChanged(message); });
    bus.subscribe(std::string(interfaceSignals) + ",sender='" + serviceName + "'",
                  [this](Message& message) { signalled(message); });
    owner_ = bus.serviceOwner();
}

// Strangers may send this one, too; what the bus itself says is as declared.
void ServiceWatch::ownerChanged(Message& message) {
    if (message.sender() != busDaemon || message.text() != serviceName) {
        return;
    }
    message.text(); // the owner before
    const auto owner = message.text();
    if (owner == owner_) {
        return; // found already when it was looked for
    }
    const bool left = present();
    owner_ = owner;
    if (left) {
        handler_.serviceLeft();
    }
    if (present()) {
        handler_.serviceAppeared();
    }
}

void ServiceWatch::signalled(Message& message) {
    const auto sender = message.sender();
    if (present() && sender == owner_) {
        handler_.signalCame(message);
    } else {
        handler_.strangerSignalled(sender);
    }
}

} // namespace BusClient
