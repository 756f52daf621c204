// The service's signals as lines.
#include "watch.h"

#include "bus_client/service_watch.h"
#include "commands.h"
#include "interface_table.h"
#include "json.h"
#include "service.h"
#include "signals.h"
#include "text.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <iostream>

namespace Vardctl {

namespace {

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
class Watcher : BusClient::ServiceWatch::Handler {
public:
    explicit Watcher(bool json) : json_(json) {}

    void run();

private:
    bool interrupted(const HeldSignals& signals);
    void print(const std::string& name, std::vector<uint32_t> values = {}) const;
    void serviceAppeared() noexcept override { print("serviceAppeared"); }
    void serviceLeft() noexcept override { print("serviceLeft"); }
    void signalCame(BusClient::Message& signal) noexcept override { print(signal.member(), signal.counts()); }
    void strangerSignalled(const std::string& /*sender*/) noexcept override {}

    Service service_;
    bool json_;
};

void Watcher::print(const std::string& name, std::vector<uint32_t> values) const {
    const Event event{std::chrono::system_clock::now(), name, std::move(values)};
    std::cout << (json_ ? eventJson(event) : eventLine(event)) << std::flush;
}

// Waits for the bus. True when a signal came or nobody reads any more what would be written.
bool Watcher::interrupted(const HeldSignals& signals) {
    const auto events = static_cast<short>(sd_bus_get_events(service_.get()));
    std::array<pollfd, 3> sources{
        {{sd_bus_get_fd(service_.get()), events, 0}, {signals.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    ::poll(sources.data(), sources.size(), -1);
    if (sources[1].revents != 0) {
        signals.take();
    }
    return sources[1].revents != 0 || sources[2].revents != 0;
}

void Watcher::run() {
    const HeldSignals signals;
    BusClient::ServiceWatch watch(service_, *this);
    // The bus hands nothing to whom the policy does not let hear it, without a word: a call tells.
    if (watch.present()) {
        service_.query("vardSessions");
    }
    print(watch.present() ? "servicePresent" : "serviceAbsent");
    while (std::cout && (service_.process() || !interrupted(signals))) {
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
