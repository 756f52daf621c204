// The boundary to the bus: whatever a caller sends and whatever a method throws, each call gets an answer and the
// service lives. An exception that left a method would travel through C code that holds locks, and end the process.
#include "bus_boundary.h"

#include "dbus_service.h"
#include "interface_table.h"
#include "user_database.h"
#include "utils.h"

#include <dbus/dbus.h>

#include <cstring>

namespace Vard {

namespace {

constexpr const char* errorFailed = "org.freedesktop.DBus.Error.Failed";
constexpr const char* errorInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* errorUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
constexpr const char* errorUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

std::string text(const char* value) { return value != nullptr ? value : ""; }

void appendNeutral(DBus::MessageIter& out, const std::string& method, const std::string& signature) {
    if (signature == "b") {
        out << false;
    } else if (signature == "i") {
        out << int32_t{-1};
    } else if (signature == "u") {
        out << uint32_t{0};
    } else if (signature == "d") {
        out << 0.0;
    } else if (signature == "s") {
        out << std::string(InterfaceTable::method(method).neutral);
    } else if (signature == "as") {
        out << std::vector<std::string>{};
    } else if (signature == "a(su)") {
        out << std::vector<DBus::Struct<std::string, uint32_t>>{};
    } else if (signature == "a(ussuuu)") {
        out << std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>>{};
    }
}

} // namespace

// The texts stand in the message's own memory, which the library made to read into; it is only handed out as constant.
// Nobody reads the arguments of an answered call again.
ArgumentsGuard::~ArgumentsGuard() {
    for (auto in = message_.reader(); !in.at_end(); ++in) {
        if (in.type() == DBUS_TYPE_STRING) {
            auto* argument = const_cast<char*>(in.get_string()); // NOLINT(*-const-cast)
            ::explicit_bzero(argument, std::strlen(argument));
        }
    }
}

std::optional<std::string> methodSignature(const DBus::IntrospectedInterface& interface, const std::string& method,
                                           bool in) {
    for (const auto* entry = interface.methods; entry->name != nullptr; ++entry) {
        if (method == entry->name) {
            std::string signature;
            for (const auto* arg = entry->args; arg->name != nullptr; ++arg) {
                signature += arg->in == in ? arg->type : "";
            }
            return signature;
        }
    }
    return std::nullopt;
}

DBus::Message neutralReply(const DBus::CallMessage& call, const std::string& method, const std::string& signature) {
    DBus::ReturnMessage reply(call);
    DBus::MessageIter out = reply.writer();
    appendNeutral(out, method, signature);
    return reply;
}

DBus::Message errorReply(const DBus::CallMessage& call, const char* name, const std::string& message) {
    return DBus::ErrorMessage(call, name, Utils::toValidUtf8(message).c_str());
}

bool DBusService::handle_message(const DBus::Message& message) {
    if (message.type() != DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return false;
    }
    // The library hands the call over as its base, as its own objects receive it.
    const auto& call = static_cast<const DBus::CallMessage&>(message); // NOLINT(*-static-cast-downcast)
    try {
        conn().send(answer(call));
    } catch (const std::exception& err) {
        error("%s: exception: %s", "handle_message", err.what());
    }
    request_.reset(); // answered: the end of its session may be told now
    return true;
}

DBus::Message DBusService::answer(const DBus::CallMessage& call) {
    const ArgumentsGuard guard(call); // wiped before the answer goes out
    const std::string interface = text(call.interface());
    const std::string method = text(call.member());
    caller_ = text(call.sender());
    auto* adaptor = interface.empty() ? nullptr : find_interface(interface);
    if (adaptor == nullptr || adaptor->introspect() == nullptr) {
        error("%s: unknown interface: `%s', method: `%s'", "handle_message", interface.c_str(), method.c_str());
        return errorReply(call, errorUnknownInterface, "unknown interface: " + interface);
    }
    const auto expected = methodSignature(*adaptor->introspect(), method, true);
    if (!expected) {
        error("%s: unknown method: `%s'", "handle_message", method.c_str());
        return errorReply(call, errorUnknownMethod, "unknown method: " + method);
    }
    if (*expected != text(call.signature())) {
        error("%s: wrong arguments, method: `%s', signature: `%s'", "handle_message", method.c_str(), call.signature());
        return errorReply(call, errorInvalidArgs,
                          "arguments of " + method + ": expected signature `" + *expected + "'");
    }
    return dispatchGuarded(*adaptor, call, method);
}

uid_t DBusService::callerUid() {
    DBus::CallMessage call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "GetConnectionUnixUser");
    DBus::MessageIter out = call.writer();
    out << caller_;
    uint32_t uid = unknownUid;
    try {
        const DBus::Message reply = conn().send_blocking(call);
        DBus::MessageIter in = reply.reader();
        in >> uid;
    } catch (const DBus::Error& err) {
        debug("%s: caller is gone: %s, %s", "callerUid", caller_.c_str(), err.what());
    }
    return uid;
}

DBus::Message DBusService::dispatchGuarded(DBus::InterfaceAdaptor& adaptor, const DBus::CallMessage& call,
                                           const std::string& method) {
    std::string reason;
    try {
        return adaptor.dispatch_method(call);
    } catch (const DBus::Error& err) {
        error("%s: exception: %s", method.c_str(), text(err.message()).c_str());
        const bool named = ::dbus_validate_error_name(text(err.name()).c_str(), nullptr) != 0;
        return errorReply(call, named ? err.name() : errorFailed, text(err.message()));
    } catch (const std::exception& err) {
        reason = err.what();
    } catch (...) {
        reason = "unknown exception";
    }
    error("%s: exception: %s", method.c_str(), reason.c_str());
    if (InterfaceTable::method(method).startsSession) {
        return errorReply(call, errorFailed, reason);
    }
    return neutralReply(call, method, methodSignature(*adaptor.introspect(), method, false).value_or(""));
}

} // namespace Vard
