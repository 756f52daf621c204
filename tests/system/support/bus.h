// A client of the service on the system bus, written against the interface alone.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Test {

inline constexpr const char* busName = "ru.korvex.vard";
inline constexpr const char* busPath = "/ru/korvex/vard";

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
    explicit Bus(std::chrono::seconds limit = std::chrono::seconds(120));

    /// Calls a method of the service's interface; arguments as sd-bus takes them.
    template <typename... Args>
    Reply call(const char* method, const char* types = "", Args... args) {
        return callInterface(busName, method, types, args...);
    }
    template <typename... Args>
    Reply callInterface(const char* interface, const char* method, const char* types = "", Args... args) {
        sd_bus_message* message = newCall(interface, method);
        sd_bus_message_append(message, types, args...);
        return send(message);
    }
    /// busSessionRequest with depth 24; the answered number.
    int64_t login(const std::string& user, uint16_t width = 640, uint16_t height = 480);
    /// vardSessionInfoJson; empty for an error.
    std::string session(uint32_t sid);
    /// True when the service's name has an owner.
    bool owned();

private:
    friend class Signals;
    struct Unref {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };
    sd_bus_message* newCall(const char* interface, const char* method);
    Reply send(sd_bus_message* message);

    std::chrono::microseconds limit_;
    std::unique_ptr<sd_bus, Unref> bus_;
};

/// Records the service's signals from its making on.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// Waits for a signal of that name and takes everything up to it away; what was taken, in order. Throws when it
    /// does not come.
    std::vector<Signal> upTo(const std::string& name);

private:
    static int received(sd_bus_message* message, void* self, sd_bus_error* error);

    Bus bus_;
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
