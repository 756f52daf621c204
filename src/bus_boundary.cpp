// The boundary to the bus: whatever a caller sends and whatever a method throws, each call gets an answer and the
// service lives. An exception that left a method would travel through C code that holds locks, and end the process.
#include "bus_boundary.h"

#include "interface_table.h"
#include "logger.h"
#include "secret.h"
#include "text.h"
#include "user_database.h"

#include <dbus/dbus.h>

#include <cstring>
#include <optional>
#include <vector>

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

/// Wipes the text arguments in a received message itself when the scope is left: the library keeps the memory of
/// messages for later ones. Only for whoever reads the message last.
class ArgumentsGuard {
public:
    explicit ArgumentsGuard(const DBus::Message& message) : message_(message) {}
    ~ArgumentsGuard();
    ArgumentsGuard(const ArgumentsGuard&) = delete;
    ArgumentsGuard& operator=(const ArgumentsGuard&) = delete;

private:
    const DBus::Message& message_;
};

// The texts stand in the message's own memory, which the library made to read into; it is only handed out as constant.
// Nobody reads the arguments of an answered call again.
ArgumentsGuard::~ArgumentsGuard() {
    for (auto in = message_.reader(); !in.at_end(); ++in) {
        if (in.type() == DBUS_TYPE_STRING) {
            auto* argument = const_cast<char*>(in.get_string()); // NOLINT(*-const-cast)
            Utils::wipe(argument, std::strlen(argument));
        }
    }
}

/// The signature of a method's arguments in one direction, from the introspection table; none for an unknown method.
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

/// The answer of a method that failed: what the interface's description says, or else false, -1, 0, an empty list or
/// text.
DBus::Message neutralReply(const DBus::CallMessage& call, const std::string& method, const std::string& signature) {
    DBus::ReturnMessage reply(call);
    DBus::MessageIter out = reply.writer();
    appendNeutral(out, method, signature);
    return reply;
}

/// An error reply; the text is made fit for the bus. `name` must be a valid error name.
DBus::Message errorReply(const DBus::CallMessage& call, const char* name, const std::string& message) {
    return DBus::ErrorMessage(call, name, Utils::toValidUtf8(message).c_str());
}

DBus::Message dispatchGuarded(DBus::InterfaceAdaptor& adaptor, const DBus::CallMessage& call,
                              const std::string& method) {
    std::string reason;
    try {
        return adaptor.dispatch_method(call);
    } catch (const DBus::Error& err) {
        Syslog::error("%s: exception: %s", method.c_str(), text(err.message()).c_str());
        const bool named = ::dbus_validate_error_name(text(err.name()).c_str(), nullptr) != 0;
        return errorReply(call, named ? err.name() : errorFailed, text(err.message()));
    } catch (const std::exception& err) {
        reason = err.what();
    } catch (...) {
        reason = "unknown exception";
    }
    Syslog::error("%s: exception: %s", method.c_str(), reason.c_str());
    if (InterfaceTable::method(method).startsSession) {
        return errorReply(call, errorFailed, reason);
    }
    return neutralReply(call, method, methodSignature(*adaptor.introspect(), method, false).value_or(""));
}

DBus::Message answer(const DBus::CallMessage& call, const InterfaceFinder& find) {
    const ArgumentsGuard guard(call); // wiped before the answer goes out
    const std::string interface = text(call.interface());
    const std::string method = text(call.member());
    auto* adaptor = interface.empty() ? nullptr : find(interface);
    if (adaptor == nullptr || adaptor->introspect() == nullptr) {
        Syslog::error("%s: unknown interface: `%s', method: `%s'", "handle_message", interface.c_str(), method.c_str());
        return errorReply(call, errorUnknownInterface, "unknown interface: " + interface);
    }
    const auto expected = methodSignature(*adaptor->introspect(), method, true);
    if (!expected) {
        Syslog::error("%s: unknown method: `%s'", "handle_message", method.c_str());
        return errorReply(call, errorUnknownMethod, "unknown method: " + method);
    }
    if (*expected != text(call.signature())) {
        Syslog::error("%s: wrong arguments, method: `%s', signature: `%s'", "handle_message", method.c_str(),
                      call.signature());
        return errorReply(call, errorInvalidArgs,
                          "arguments of " + method + ": expected signature `" + *expected + "'");
    }
    return dispatchGuarded(*adaptor, call, method);
}

} // namespace

void answerCall(DBus::Connection& bus, const DBus::CallMessage& call, const InterfaceFinder& find) noexcept {
    try {
        bus.send(answer(call, find));
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "handle_message", err.what());
    }
}

uid_t callerUid(DBus::Connection& bus, const DBus::CallMessage& answered) {
    const std::string sender = text(answered.sender());
    DBus::CallMessage call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "GetConnectionUnixUser");
    DBus::MessageIter out = call.writer();
    out << sender;
    uint32_t uid = unknownUid;
    try {
        const DBus::Message reply = bus.send_blocking(call);
        DBus::MessageIter in = reply.reader();
        in >> uid;
    } catch (const DBus::Error& err) {
        Syslog::debug("%s: caller is gone: %s, %s", "callerUid", sender.c_str(), err.what());
    }
    return uid;
}

} // namespace Vard
