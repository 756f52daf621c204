// The service as the bus shows it: calls, answers, failures.
#pragma once

#include "failure.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Vardctl {

inline constexpr const char* busName = "ru.korvex.vard"; ///< its interface's name as well
inline constexpr const char* busPath = "/ru/korvex/vard";

/// How long a query may take, and how long what starts, changes or ends something.
inline constexpr std::chrono::seconds queryLimit{10};
inline constexpr std::chrono::seconds actionLimit{60};

/// The failure for a method's error answer.
Failure callFailure(const std::string& method, const std::string& errorName, const std::string& text);

/// A method's answer; its values are read in order. Throws Failure when there is no value of that type.
class Answer {
public:
    explicit Answer(sd_bus_message* message) : message_(message, sd_bus_message_unref) {}

    std::string text();
    bool flag();
    int32_t number();
    uint32_t count();
    double real();
    std::vector<std::string> texts();

    /// A row of the sessions' list.
    struct Row {
        uint32_t display = 0;
        std::string user;
        std::string start;
        uint32_t age = 0; ///< seconds
        uint32_t uid = 0;
        uint32_t gid = 0;
    };
    std::vector<Row> rows();

private:
    template <typename Value>
    Value read(const char* type);

    std::shared_ptr<sd_bus_message> message_;
};

/// A connection to the system bus. The service is never started by a call of it.
class BusClient {
public:
    /// Connects; throws Failure when the bus cannot be reached.
    BusClient();

    /// Calls a method with arguments as sd-bus takes them, and waits. The message's memory is wiped: it may hold a
    /// password. Throws Failure for an error answer and when none comes within the limit.
    template <typename... Args>
    Answer call(const char* method, std::chrono::seconds limit, const char* types = "", Args... args) {
        const auto message = newCall(method);
        checkArguments(sd_bus_message_append(message.get(), types, args...));
        return send(*message, method, limit);
    }
    template <typename... Args>
    Answer query(const char* method, const char* types = "", Args... args) {
        return call(method, queryLimit, types, args...);
    }
    template <typename... Args>
    Answer act(const char* method, const char* types = "", Args... args) {
        return call(method, actionLimit, types, args...);
    }

    /// The connection itself, which stays the object's.
    [[nodiscard]] sd_bus* get() const { return bus_.get(); }

private:
    using Message = std::shared_ptr<sd_bus_message>;

    Message newCall(const char* method);
    static void checkArguments(int result);
    Answer send(sd_bus_message& message, const char* method, std::chrono::seconds limit);

    std::shared_ptr<sd_bus> bus_;
};

} // namespace Vardctl
