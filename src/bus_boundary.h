// The boundary to the bus: each call gets an answer.
#pragma once

#include <dbus-c++/dbus.h>

#include <sys/types.h>

#include <functional>
#include <string>

namespace Vard {

/// Finds the adaptor of an interface by its name; null for an unknown one.
using InterfaceFinder = std::function<DBus::InterfaceAdaptor*(const std::string& name)>;

/// Answers a method call whatever the caller has sent and whatever the method throws, and logs what was wrong. The text
/// arguments are wiped in the received message before the answer goes out. Main thread.
void answerCall(DBus::Connection& bus, const DBus::CallMessage& call, const InterfaceFinder& find) noexcept;

/// The user who made a call; all ones when the bus does not tell. Main thread.
uid_t callerUid(DBus::Connection& bus, const DBus::CallMessage& answered);

} // namespace Vard
