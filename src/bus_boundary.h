// What the boundary to the bus knows of the interface.
#pragma once

#include "utils.h"

#include <dbus-c++/dbus.h>

#include <optional>
#include <string>

namespace Vard {

/// Wipes a password that the bus library made for one call, however the call ends. The library's variable is no
/// constant; it only hands it over as one.
class PasswordGuard : Utils::WipeGuard<std::string> {
public:
    explicit PasswordGuard(const std::string& password) : WipeGuard(const_cast<std::string&>(password)) {} // NOLINT
};

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

/// The D-Bus signature of a method's arguments in one direction, from the introspection table; none for an unknown
/// method.
std::optional<std::string> methodSignature(const DBus::IntrospectedInterface& interface, const std::string& method,
                                           bool in);

/// The answer of a method that failed: what the interface's description says, or else false, -1, 0, an empty list or
/// text.
DBus::Message neutralReply(const DBus::CallMessage& call, const std::string& method, const std::string& signature);

/// An error reply; the text is made fit for the bus. `name` must be a valid error name.
DBus::Message errorReply(const DBus::CallMessage& call, const char* name, const std::string& text);

} // namespace Vard
