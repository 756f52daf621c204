// The service's signals as lines.
#include "watch.h"

#include "bus_client.h"
#include "commands.h"
#include "interface_table.h"
#include "json.h"
#include "signals.h"
#include "text.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <iostream>

namespace Vardctl {

namespace {

constexpr const char* busDaemon = "org.freedesktop.DBus";

std::string argumentName(const std::string& signal, size_t index) {
    const auto names = Vard::InterfaceTable::signal(signal).arguments;
    return index < names.size() && !names[index].empty() ? std::string(names[index]) : "arg" + std::to_string(index);
}

std::string timeText(std::chrono::system_clock::time_point point, bool utc, const char* format) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(point.time_since_epoch()).count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm fields{};
    utc ? ::gmtime_r(&seconds, &fields) : ::localtime_r(&seconds, &fields);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), format, &fields);
    const auto fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
    return std::string(text.data()) + "." + fraction;
}

/// Follows the service on the bus and prints what it does.
class Watcher {
public:
    explicit Watcher(bool json) : json_(json) {}

    void run();

private:
    void follow();
    void findOwner();
    void waitForBus(const HeldSignals& signals, bool& stopped);
    void print(const std::string& name, std::vector<uint32_t> values = {}) const;
    void ownerChanged(const std::string& owner);
    static int received(sd_bus_message* message, void* self, sd_bus_error* error);
    static int nameMoved(sd_bus_message* message, void* self, sd_bus_error* error);

    BusClient bus_;
    bool json_;
    std::string owner_; // the service's own address; any process may send us a signal under the service's names
};

void Watcher::print(const std::string& name, std::vector<uint32_t> values) const {
    const Event event{std::chrono::system_clock::now(), name, std::move(values)};
    std::cout << (json_ ? eventJson(event) : eventLine(event)) << std::flush;
}

void Watcher::ownerChanged(const std::string& owner) {
    if (owner == owner_) {
        return; // found already when it was looked for
    }
    if (!owner_.empty()) {
        print("serviceLeft");
    }
    owner_ = owner;
    if (!owner_.empty()) {
        print("serviceAppeared");
    }
}

int Watcher::received(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const auto& watcher = *static_cast<Watcher*>(self);
    const char* sender = sd_bus_message_get_sender(message);
    if (sender == nullptr || watcher.owner_ != sender) {
        return 0;
    }
    std::vector<uint32_t> values;
    uint32_t value = 0;
    while (sd_bus_message_read_basic(message, 'u', &value) > 0) {
        values.push_back(value);
    }
    watcher.print(sd_bus_message_get_member(message), std::move(values));
    return 0;
}

int Watcher::nameMoved(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    const char* sender = sd_bus_message_get_sender(message);
    if (sender != nullptr && std::strcmp(sender, busDaemon) == 0 &&
        sd_bus_message_read(message, "sss", &name, &before, &after) > 0 && std::strcmp(name, busName) == 0) {
        static_cast<Watcher*>(self)->ownerChanged(after);
    }
    return 0;
}

void Watcher::findOwner() {
    sd_bus_creds* creds = nullptr;
    const char* unique = nullptr;
    if (sd_bus_get_name_creds(bus_.get(), busName, SD_BUS_CREDS_UNIQUE_NAME, &creds) >= 0 &&
        sd_bus_creds_get_unique_name(creds, &unique) >= 0) {
        owner_ = unique;
    }
    sd_bus_creds_unref(creds);
}

void Watcher::follow() {
    const std::string moves =
        std::string("type='signal',sender='") + busDaemon + "',member='NameOwnerChanged',arg0='" + busName + "'";
    if (sd_bus_add_match(bus_.get(), nullptr, moves.c_str(), nameMoved, this) < 0 ||
        sd_bus_match_signal(bus_.get(), nullptr, busName, busPath, busName, nullptr, received, this) < 0) {
        throw Failure(ExitCode::notRunning, "the system bus does not let the signals through");
    }
    findOwner();
    // The bus hands nothing to whom the policy does not let hear it, without a word: a call tells.
    if (!owner_.empty()) {
        bus_.query("vardSessions");
    }
}

void Watcher::waitForBus(const HeldSignals& signals, bool& stopped) {
    const auto events = static_cast<short>(sd_bus_get_events(bus_.get()));
    std::array<pollfd, 3> sources{
        {{sd_bus_get_fd(bus_.get()), events, 0}, {signals.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    ::poll(sources.data(), sources.size(), -1);
    if (sources[1].revents != 0) {
        signals.take();
    }
    stopped = sources[1].revents != 0 || sources[2].revents != 0; // nobody reads what would be written
}

void Watcher::run() {
    const HeldSignals signals;
    follow();
    print(owner_.empty() ? "serviceAbsent" : "servicePresent");
    // The library's C code lies between the loop and what prints, so that must not throw.
    for (bool stopped = false; !stopped && std::cout;) {
        const int result = sd_bus_process(bus_.get(), nullptr);
        if (result < 0) {
            throw Failure(ExitCode::notRunning, "the connection to the system bus is lost");
        }
        if (result == 0) {
            waitForBus(signals, stopped);
        }
    }
}

} // namespace

std::string eventLine(const Event& event) {
    std::string line = timeText(event.time, false, "%F %T") + " " + harmless(event.name);
    for (size_t i = 0; i < event.values.size(); ++i) {
        line += " " + argumentName(event.name, i) + "=" + std::to_string(event.values[i]);
    }
    return line + "\n";
}

std::string eventJson(const Event& event) {
    Json::Value object;
    object["time"] = timeText(event.time, true, "%FT%T") + "Z";
    object["event"] = event.name;
    for (size_t i = 0; i < event.values.size(); ++i) {
        object[argumentName(event.name, i)] = event.values[i];
    }
    return jsonLine(object);
}

void watch(const Options& options) { Watcher(options.json).run(); }

} // namespace Vardctl
