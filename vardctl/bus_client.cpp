// The service as the bus shows it: calls, answers, failures.
#include "bus_client.h"

#include "access.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace Vardctl {

namespace {

/// An error answer that frees itself.
struct ErrorAnswer {
    sd_bus_error error{};

    ErrorAnswer() = default;
    ~ErrorAnswer() { sd_bus_error_free(&error); }
    ErrorAnswer(const ErrorAnswer&) = delete;
    ErrorAnswer& operator=(const ErrorAnswer&) = delete;
};

Failure unexpected() { return {ExitCode::failed, "the service's answer is not of the expected type"}; }

bool meansAbsent(const std::string& name) {
    constexpr std::array<std::string_view, 4> names{"ServiceUnknown", "NameHasNoOwner", "Disconnected", "NoServer"};
    return std::ranges::any_of(
        names, [&](std::string_view last) { return name == "org.freedesktop.DBus.Error." + std::string(last); });
}

// The bus says the first when the service goes away in the middle of a call, the library the others.
bool meansSilence(const std::string& name) {
    return name == "org.freedesktop.DBus.Error.NoReply" || name == "org.freedesktop.DBus.Error.Timeout" ||
           name == "System.Error.ETIMEDOUT";
}

} // namespace

Failure callFailure(const std::string& method, const std::string& errorName, const std::string& text) {
    if (errorName == "org.freedesktop.DBus.Error.AccessDenied") {
        return {ExitCode::denied, deniedMessage(method)};
    }
    if (meansAbsent(errorName)) {
        return {ExitCode::notRunning, "the service is not running: " + std::string(busName) + " is not on the bus"};
    }
    if (meansSilence(errorName)) {
        return {ExitCode::notRunning, "the service did not answer " + method};
    }
    return {ExitCode::failed, method + " failed: " + (text.empty() ? errorName : text)};
}

template <typename Value>
Value Answer::read(const char* type) {
    Value value{};
    if (sd_bus_message_read_basic(message_.get(), type[0], &value) <= 0) {
        throw unexpected();
    }
    return value;
}

std::string Answer::text() { return read<const char*>("s"); }

bool Answer::flag() { return read<int>("b") != 0; } // the library writes an int

int32_t Answer::number() { return read<int32_t>("i"); }

uint32_t Answer::count() { return read<uint32_t>("u"); }

double Answer::real() { return read<double>("d"); }

std::vector<std::string> Answer::texts() {
    if (sd_bus_message_enter_container(message_.get(), 'a', "s") < 0) {
        throw unexpected();
    }
    std::vector<std::string> result;
    while (sd_bus_message_at_end(message_.get(), 0) == 0) {
        result.push_back(text());
    }
    return result;
}

std::vector<Answer::Row> Answer::rows() {
    if (sd_bus_message_enter_container(message_.get(), 'a', "(ussuuu)") < 0) {
        throw unexpected();
    }
    std::vector<Row> result;
    while (sd_bus_message_enter_container(message_.get(), 'r', "ussuuu") > 0) {
        result.push_back({count(), text(), text(), count(), count(), count()}); // in the order they stand in
        sd_bus_message_exit_container(message_.get());
    }
    return result;
}

BusClient::BusClient() {
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    if (result < 0) {
        throw Failure(ExitCode::notRunning, std::string("the system bus cannot be reached: ") + std::strerror(-result));
    }
    bus_.reset(bus, sd_bus_flush_close_unref);
}

BusClient::Message BusClient::newCall(const char* method) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus_.get(), &message, busName, busPath, busName, method) < 0) {
        throw Failure(ExitCode::notRunning, "the connection to the system bus is lost");
    }
    sd_bus_message_set_auto_start(message, 0);
    sd_bus_message_sensitive(message);
    return {message, sd_bus_message_unref};
}

void BusClient::checkArguments(int result) {
    if (result < 0) {
        throw Failure(ExitCode::usage, "an argument is not valid UTF-8 text");
    }
}

Answer BusClient::send(sd_bus_message& message, const char* method, std::chrono::seconds limit) {
    ErrorAnswer answer;
    sd_bus_message* reply = nullptr;
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(limit).count();
    const int result = sd_bus_call(bus_.get(), &message, static_cast<uint64_t>(time), &answer.error, &reply);
    if (result < 0) {
        const auto text = [](const char* value) { return std::string(value != nullptr ? value : ""); };
        throw callFailure(method, text(answer.error.name), text(answer.error.message));
    }
    return Answer(reply);
}

} // namespace Vardctl
