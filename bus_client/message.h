// A message of the bus, and how a call fails.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace BusClient {

inline constexpr const char* noBus = "ru.korvex.vard.Client.NoBus"; ///< the bus cannot be reached, or is lost
inline constexpr const char* badArgument = "ru.korvex.vard.Client.BadArgument"; ///< not valid UTF-8, as a rule

/// What the library has for a text; empty for none.
std::string textOf(const char* value);

/// What came instead of an answer.
class Error : public std::runtime_error {
public:
    /// Without a text the name serves as one.
    Error(std::string name, const std::string& text, std::string method = "")
        : runtime_error(text.empty() ? name : text), name_(std::move(name)), method_(std::move(method)) {}

    /// An error's name as the bus has it, or one of the above; empty for an answer of another type than expected.
    [[nodiscard]] const std::string& name() const { return name_; }
    /// The method that was called; empty when none was.
    [[nodiscard]] const std::string& method() const { return method_; }

private:
    std::string name_;
    std::string method_;
};

/// A message; copies share it. Its values are read in order: where there is none of that type, Error is thrown.
class Message {
public:
    /// Takes over the caller's reference.
    explicit Message(sd_bus_message* adopted) : message_(adopted, sd_bus_message_unref) {}

    /// The next value: a string.
    std::string text();
    /// A boolean.
    bool flag();
    /// A signed number of 32 bits.
    int32_t number();
    /// An unsigned number of 32 bits.
    uint32_t count();
    /// A floating-point number.
    double real();
    /// An array of strings.
    std::vector<std::string> texts();
    /// What is left of numbers as of count(), up to the first value that is none. Throws nothing.
    std::vector<uint32_t> counts();
    /// An array; `read` reads one of its elements, which are of the type `element`.
    template <typename Read>
    auto list(const std::string& element, Read read) {
        std::vector<decltype(read())> result;
        for (enter('a', element); !atEnd();) {
            result.push_back(read());
        }
        leave();
        return result;
    }
    /// A structure of the types `fields`; what `read` returns.
    template <typename Read>
    auto structure(const std::string& fields, Read read) {
        enter('r', fields);
        auto result = read();
        leave();
        return result;
    }

    /// The types of all its values, as the bus writes them.
    [[nodiscard]] std::string signature() const;
    /// The name of the method or signal; empty for an answer.
    [[nodiscard]] std::string member() const;
    /// The unique name of who sent it.
    [[nodiscard]] std::string sender() const;
    /// The library's message, which stays this object's.
    [[nodiscard]] sd_bus_message* get() const { return message_.get(); }

private:
    template <typename Value>
    Value next(char type);
    void enter(char kind, const std::string& contents);
    bool atEnd();
    void leave();

    std::shared_ptr<sd_bus_message> message_;
};

} // namespace BusClient
