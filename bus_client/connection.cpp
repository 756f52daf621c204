// A connection to the system bus, on which the service is.
#include "connection.h"

#include <cstring>

namespace BusClient {

namespace {

constexpr const char* lost = "the connection to the system bus is lost";

int handOver(sd_bus_message* message, void* handler, sd_bus_error* /*error*/) noexcept {
    Message shared(sd_bus_message_ref(message));
    (*static_cast<Connection::Handler*>(handler))(shared);
    return 0;
}

// The bus keeps the handler as long as it may be called. `enlist` registers it, and returns what the library does.
template <typename Enlist>
int keep(Connection::Handler handler, Enlist enlist) {
    auto kept = std::make_unique<Connection::Handler>(std::move(handler));
    sd_bus_slot* slot = nullptr;
    const int result = enlist(&slot, kept.get());
    if (result >= 0) {
        sd_bus_slot_set_destroy_callback(slot, [](void* old) { delete static_cast<Connection::Handler*>(old); });
        sd_bus_slot_set_floating(slot, 1);
        sd_bus_slot_unref(slot);
        (void)kept.release();
    }
    return result;
}

} // namespace

void Connection::check(int result, const char* name, const std::string& text) {
    if (result < 0) {
        throw Error(name, text);
    }
}

Connection::Connection() {
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    check(result, noBus, std::string("the system bus cannot be reached: ") + std::strerror(-result));
    bus_.reset(bus, sd_bus_flush_close_unref);
}

Message Connection::emptyCall(const char* interface, const char* method) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(get(), &message, serviceName, servicePath, interface, method), noBus, lost);
    sd_bus_message_set_auto_start(message, 0);
    sd_bus_message_sensitive(message);
    return Message(message);
}

Message Connection::wait(const Message& call, std::chrono::microseconds limit) {
    sd_bus_error error{};
    const std::unique_ptr<sd_bus_error, decltype(&sd_bus_error_free)> owner(&error, sd_bus_error_free);
    sd_bus_message* reply = nullptr;
    if (sd_bus_call(get(), call.get(), static_cast<uint64_t>(limit.count()), &error, &reply) < 0) {
        throw Error(textOf(error.name), textOf(error.message), call.member());
    }
    return Message(reply);
}

void Connection::send(const Message& call, Handler answered) {
    const auto enlist = [&](sd_bus_slot** slot, void* handler) {
        return sd_bus_call_async(get(), slot, call.get(), handOver, handler, 0);
    };
    check(keep(std::move(answered), enlist), noBus, lost);
}

void Connection::subscribe(const std::string& rule, Handler came) {
    const auto enlist = [&](sd_bus_slot** slot, void* handler) {
        return sd_bus_add_match(get(), slot, rule.c_str(), handOver, handler);
    };
    check(keep(std::move(came), enlist), noBus, "the system bus does not let the signals through");
}

bool Connection::process() {
    const int result = sd_bus_process(get(), nullptr);
    check(result, noBus, lost);
    return result > 0;
}

std::string Connection::serviceOwner() const {
    sd_bus_creds* creds = nullptr;
    const char* unique = nullptr;
    const bool found = sd_bus_get_name_creds(get(), serviceName, SD_BUS_CREDS_UNIQUE_NAME, &creds) >= 0 &&
                       sd_bus_creds_get_unique_name(creds, &unique) >= 0;
    std::string owner = found ? unique : "";
    sd_bus_creds_unref(creds);
    return owner;
}

} // namespace BusClient
