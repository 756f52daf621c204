// The connector's side of the service's bus interface.
#include "service_link.h"

#include <systemd/sd-journal.h>

#include <exception>
#include <system_error>

namespace Connector {

namespace {

constexpr const char* serviceName = "ru.korvex.vard";
constexpr const char* servicePath = "/ru/korvex/vard";
constexpr const char* driverName = "org.freedesktop.DBus";
constexpr const char* ownerMatch =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='ru.korvex.vard'";

using Answer = std::function<void(const std::string& json)>;

void check(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

bool isFrom(sd_bus_message* message, const std::string& sender) {
    const char* found = sd_bus_message_get_sender(message);
    return found != nullptr && !sender.empty() && sender == found;
}

void logError(sd_bus_message* answer, const char* what) {
    if (const sd_bus_error* error = sd_bus_message_get_error(answer); error != nullptr) {
        sd_journal_print(LOG_ERR, "%s: the service refused: %s: %s", what, error->name,
                         error->message != nullptr ? error->message : "");
    }
}

int reportAnswered(sd_bus_message* answer, void*, sd_bus_error*) {
    logError(answer, "report");
    return 0;
}

int sessionAnswered(sd_bus_message* answer, void* data, sd_bus_error*) {
    logError(answer, "vardSessionInfoJson");
    const char* text = nullptr;
    const bool got = sd_bus_message_get_error(answer) == nullptr && sd_bus_message_read(answer, "s", &text) > 0;
    try {
        (*static_cast<Answer*>(data))(got ? text : "");
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "%s: exception: %s", "vardSessionInfoJson", err.what());
    }
    return 0;
}

} // namespace

ServiceLink::ServiceLink(sd_event* loop, Handler& handler) : handler_(handler) {
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "sd_bus_open_system");
    bus_.reset(bus);
    check(sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    check(sd_bus_set_exit_on_disconnect(bus, 1), "sd_bus_set_exit_on_disconnect");
    check(sd_bus_add_match(bus, nullptr, ownerMatch, ownerChanged, this), "sd_bus_add_match");
    check(sd_bus_match_signal(bus, nullptr, serviceName, servicePath, serviceName, nullptr, signalReceived, this),
          "sd_bus_match_signal");
    findOwner();
}

ServiceLink::~ServiceLink() = default;

void ServiceLink::findOwner() {
    sd_bus_creds* creds = nullptr;
    const char* name = nullptr;
    if (sd_bus_get_name_creds(bus_.get(), serviceName, SD_BUS_CREDS_UNIQUE_NAME, &creds) >= 0 &&
        sd_bus_creds_get_unique_name(creds, &name) >= 0) {
        owner_ = name;
    }
    sd_bus_creds_unref(creds);
}

int ServiceLink::ownerChanged(sd_bus_message* message, void* self, sd_bus_error*) {
    auto* link = static_cast<ServiceLink*>(self);
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (isFrom(message, driverName) && sd_bus_message_read(message, "sss", &name, &before, &after) > 0 &&
        std::string(name) == serviceName) {
        link->owner_ = after;
        if (*before != '\0') {
            link->handler_.serviceStopped();
        }
    }
    return 0;
}

// Anybody may send a signal of any name straight to this connection, past the match's sender. Only the owner's count.
int ServiceLink::signalReceived(sd_bus_message* message, void* self, sd_bus_error*) {
    auto* link = static_cast<ServiceLink*>(self);
    if (!isFrom(message, link->owner_)) {
        const char* sender = sd_bus_message_get_sender(message);
        sd_journal_print(LOG_WARNING, "%s: a signal of a stranger, ignored: %s", "signalReceived",
                         sender != nullptr ? sender : "");
        return 0;
    }
    try {
        link->dispatch(message);
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "%s: exception: %s", sd_bus_message_get_member(message), err.what());
    }
    return 0;
}

void ServiceLink::dispatch(sd_bus_message* message) {
    const std::string member = sd_bus_message_get_member(message);
    uint32_t first = 0;
    uint32_t second = 0;
    if (member == "signalVardStopped") {
        handler_.serviceStopped();
    } else if (member == "signalProxyAllowConnection") {
        if (sd_bus_message_read(message, "uu", &first, &second) > 0) {
            handler_.allowConnection(first, second);
        }
    } else if (sd_bus_message_read(message, "u", &first) <= 0) {
        sd_journal_print(LOG_WARNING, "%s: not as declared", member.c_str());
    } else if (member == "signalProxyListenTimeout") {
        handler_.listenTimeout(first);
    } else if (member == "signalSessionShutdown") {
        handler_.sessionShutdown(first);
    }
}

// A service that has been stopped is not to be started by a question.
ServiceLink::Message ServiceLink::newCall(const char* method) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &message, serviceName, servicePath, serviceName, method), method);
    check(sd_bus_message_set_auto_start(message, 0), method);
    return Message(message, sd_bus_message_unref);
}

void ServiceLink::askSession(uint32_t session, Answer answered) {
    auto kept = std::make_unique<Answer>(std::move(answered));
    sd_bus_slot* slot = nullptr;
    const auto call = newCall("vardSessionInfoJson");
    check(sd_bus_message_append(call.get(), "u", session), "vardSessionInfoJson");
    check(sd_bus_call_async(bus_.get(), &slot, call.get(), sessionAnswered, kept.get(), 0), "vardSessionInfoJson");
    sd_bus_slot_set_destroy_callback(slot, [](void* data) { delete static_cast<Answer*>(data); });
    sd_bus_slot_set_floating(slot, 1); // the bus keeps it until the answer is there
    sd_bus_slot_unref(slot);
    (void)kept.release();
}

template <typename... Args>
void ServiceLink::report(const char* method, const char* types, Args... args) {
    const auto call = newCall(method);
    check(sd_bus_message_append(call.get(), types, args...), method);
    check(sd_bus_call_async(bus_.get(), nullptr, call.get(), reportAnswered, nullptr, 0), method);
}

void ServiceLink::reportListening(uint32_t session, bool success) {
    report("proxyListenStarted", "ub", session, static_cast<int>(success));
}

void ServiceLink::reportClient(uint32_t session, const std::string& address) {
    report("proxyClientConnected", "us", session, address.c_str());
}

void ServiceLink::reportConnected(uint32_t session, uint32_t pid, const std::string& address) {
    report("proxySessionConnected", "uus", session, pid, address.c_str());
}

void ServiceLink::reportSecurity(uint32_t session, bool nla, bool tls, bool rdp) {
    report("vardRdpSecurityPolicy", "ubbb", session, static_cast<int>(nla), static_cast<int>(tls),
           static_cast<int>(rdp));
}

} // namespace Connector
