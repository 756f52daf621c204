// What the boundary to the bus knows of the interface.
#pragma once

#include <dbus-c++/dbus.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace Vard {

/// A method that this version does not offer yet.
class not_supported : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The D-Bus signature of a method's arguments in one direction, from the introspection table; none for an unknown
/// method.
std::optional<std::string> methodSignature(const DBus::IntrospectedInterface& interface, const std::string& method,
                                           bool in);

/// True for the methods that start a session, whose failures are told to the caller as an error.
bool isSessionRequest(const std::string& method);

/// The answer of a method that failed: false, -1, 0, an empty list or text, an empty JSON text.
DBus::Message neutralReply(const DBus::CallMessage& call, const std::string& method, const std::string& signature);

/// An error reply; the text is made fit for the bus. `name` must be a valid error name.
DBus::Message errorReply(const DBus::CallMessage& call, const char* name, const std::string& text);

} // namespace Vard
