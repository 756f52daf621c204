// A connection to the system bus, on which the service is.
#pragma once

#include "message.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace BusClient {

inline constexpr const char* serviceName = "ru.korvex.vard"; ///< its interface's name as well
inline constexpr const char* servicePath = "/ru/korvex/vard"; ///< of its only object

/// A connection of its own, for one thread. Whatever fails throws Error.
class Connection {
public:
    /// Gets a message when it comes. Called from code in C, it must not throw: that ends the program.
    using Handler = std::function<void(Message&)>;

    /// Connects to the system bus; whether the service is there does not matter.
    Connection();

    /// Calls a method of the service, with arguments as sd-bus takes them, and waits for the answer.
    template <typename... Args>
    Message call(const char* method, std::chrono::microseconds limit, const char* types = "", Args... args) {
        return wait(newCall(serviceName, method, types, args...), limit);
    }
    /// A call to be sent. It does not start the service, and its memory is wiped: it may hold a password.
    template <typename... Args>
    Message newCall(const char* interface, const char* method, const char* types, Args... args) {
        Message made = emptyCall(interface, method);
        check(sd_bus_message_append(made.get(), types, args...), badArgument, "an argument is not valid UTF-8 text");
        return made;
    }
    /// Sends a call and waits for its answer.
    Message wait(const Message& call, std::chrono::microseconds limit);
    /// Sends a call; `answered` gets the answer, which may be an error, later. Meant for an event loop.
    void send(const Message& call, Handler answered);

    /// Has every message that matches the rule handed to `came`.
    void subscribe(const std::string& rule, Handler came);
    /// Hands out what has come; false when nothing had.
    bool process();

    /// The unique name of the service's connection; empty when it does not run.
    [[nodiscard]] std::string serviceOwner() const;
    /// The library's connection, which stays this object's.
    [[nodiscard]] sd_bus* get() const { return bus_.get(); }

private:
    Message emptyCall(const char* interface, const char* method);
    static void check(int result, const char* name, const std::string& text);

    std::shared_ptr<sd_bus> bus_;
};

} // namespace BusClient
