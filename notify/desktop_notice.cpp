// A notice through the desktop's notification service.
#include "desktop_notice.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string_view>

namespace Vard {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr microseconds stepLimit = std::chrono::seconds(2);

struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusPtr = std::unique_ptr<sd_bus, Release>;
using MessagePtr = std::unique_ptr<sd_bus_message, Release>;

// The library gives a bus that says nothing more than a minute to greet; a call made before would wait for that.
bool greeted(sd_bus* bus) {
    const auto end = Clock::now() + stepLimit;
    while (sd_bus_is_ready(bus) <= 0) {
        const auto left = std::chrono::duration_cast<microseconds>(end - Clock::now());
        const int done = sd_bus_process(bus, nullptr);
        if (left.count() <= 0 || done < 0) {
            return false;
        }
        if (done == 0 && sd_bus_wait(bus, static_cast<uint64_t>(left.count())) < 0) {
            return false;
        }
    }
    return true;
}

BusPtr connectBus() {
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) {
        return nullptr;
    }
    BusPtr bus(opened);
    return greeted(opened) ? std::move(bus) : nullptr;
}

// A service that does not run must not be started for this: it could be any program, and the window does as well.
MessagePtr newCall(sd_bus* bus, const char* method) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus, &message, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                       "org.freedesktop.Notifications", method) < 0) {
        return nullptr;
    }
    MessagePtr call(message);
    return sd_bus_message_set_auto_start(message, 0) < 0 ? nullptr : std::move(call);
}

MessagePtr answerTo(sd_bus* bus, sd_bus_message* call) {
    sd_bus_message* answer = nullptr;
    const int result = sd_bus_call(bus, call, static_cast<uint64_t>(stepLimit.count()), nullptr, &answer);
    return MessagePtr(result < 0 ? nullptr : answer);
}

bool holds(sd_bus_message* list, std::string_view wanted) {
    if (sd_bus_message_enter_container(list, 'a', "s") < 0) {
        return false;
    }
    for (const char* text = nullptr; sd_bus_message_read(list, "s", &text) > 0;) {
        if (text == wanted) {
            return true;
        }
    }
    return false;
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

bool notify(sd_bus* bus, const Notice& notice, bool markup) {
    const auto call = newCall(bus, "Notify");
    const std::string body = markup ? escaped(notice.text) : notice.text;
    const int urgency = std::min<int>(notice.level, 2);
    return call &&
           sd_bus_message_append(call.get(), "susssasa{sv}i", "vard", 0U, "", notice.title.c_str(), body.c_str(), 0, 1,
                                 "urgency", "y", urgency, -1) >= 0 &&
           answerTo(bus, call.get());
}

} // namespace

bool showOnDesktop(const Notice& notice) {
    const auto bus = connectBus();
    const auto call = bus ? newCall(bus.get(), "GetCapabilities") : nullptr;
    const auto capabilities = call ? answerTo(bus.get(), call.get()) : nullptr;
    return capabilities && notify(bus.get(), notice, holds(capabilities.get(), "body-markup"));
}

} // namespace Vard
