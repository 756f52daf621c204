// A client of the service on the system bus, written against the interface alone.
#pragma once

#include "bus_client/connection.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace Test {

inline constexpr const char* busName = BusClient::serviceName;
inline constexpr const char* busPath = BusClient::servicePath;

/// What a call was answered with.
struct Reply {
    std::string error; ///< the error's name; empty for a result
    std::string text; ///< the error's text, or a string result
    std::string type; ///< the result's signature
    int64_t number = 0; ///< an integer or boolean result
    double real = 0; ///< a floating-point result
    std::vector<std::string> texts; ///< a list of strings
    std::vector<std::vector<std::string>> rows; ///< a list of structures, every field as text

    [[nodiscard]] bool ok() const { return error.empty(); }
};

/// One signal of the service, with its integers.
struct Signal {
    std::string name;
    std::vector<uint32_t> args;

    bool operator==(const Signal&) const = default;
};

/// A connection of its own that calls methods.
class Bus {
public:
    /// Every call is given up after `limit`.
    explicit Bus(std::chrono::seconds limit = std::chrono::seconds(120)) : limit_(limit) {}

    /// Calls a method of the service's interface; arguments as sd-bus takes them.
    template <typename... Args>
    Reply call(const char* method, const char* types = "", Args... args) {
        return callInterface(busName, method, types, args...);
    }
    template <typename... Args>
    Reply callInterface(const char* interface, const char* method, const char* types = "", Args... args) {
        return send(connection_.newCall(interface, method, types, args...));
    }
    /// busSessionRequest with depth 24; the answered number.
    int64_t login(const std::string& user, uint16_t width = 640, uint16_t height = 480);
    /// vardSessionInfoJson; empty for an error.
    std::string session(uint32_t sid);
    /// True when the service's name has an owner.
    bool owned() { return !connection_.serviceOwner().empty(); }

private:
    Reply send(const BusClient::Message& call);

    std::chrono::seconds limit_;
    BusClient::Connection connection_;
};

/// Records the service's signals, and those that others send under its names, from its making on.
class Signals {
public:
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// Waits for a signal of that name and takes everything up to it away; what was taken, in order. Throws when it
    /// does not come.
    std::vector<Signal> upTo(const std::string& name);

private:
    BusClient::Connection connection_;
    std::deque<Signal> signals_;
};

/// Lets whatever the installed bus policy stops through to the programs behind it, for as long as the object lives.
class LoosePolicy {
public:
    LoosePolicy();
    ~LoosePolicy();
    LoosePolicy(const LoosePolicy&) = delete;
    LoosePolicy& operator=(const LoosePolicy&) = delete;
};

} // namespace Test
