// The service's signals as lines.
#include "bus_client/service_watch.h"
#include "commands.h"
#include "interface_table.h"
#include "json.h"
#include "service.h"
#include "stop_signals.h"
#include "terminal_text.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
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

/// The event in one line, with local time.
std::string eventLine(std::chrono::system_clock::time_point time, const std::string& name,
                      const std::vector<uint32_t>& values) {
    std::string line = timeText(time, false, "%F %T") + " " + harmless(name);
    for (size_t i = 0; i < values.size(); ++i) {
        line += " " + argumentName(name, i) + "=" + std::to_string(values[i]);
    }
    return line + "\n";
}

/// The event as one JSON object in one line; the time is UTC in the ISO form.
std::string eventJson(std::chrono::system_clock::time_point time, const std::string& name,
                      const std::vector<uint32_t>& values) {
    Json::Value object;
    object["time"] = timeText(time, true, "%FT%T") + "Z";
    object["event"] = name;
    for (size_t i = 0; i < values.size(); ++i) {
        object[argumentName(name, i)] = values[i];
    }
    return jsonLine(object);
}

/// Follows the service on the bus and prints what it does.
class Watcher : BusClient::ServiceWatch::Handler {
public:
    explicit Watcher(bool json) : json_(json) {}

    void run();

private:
    bool interrupted(const HeldSignals& signals);
    void print(const std::string& name, const std::vector<uint32_t>& values = {}) const;
    void serviceAppeared() noexcept override { print("serviceAppeared"); }
    void serviceLeft() noexcept override { print("serviceLeft"); }
    void signalCame(BusClient::Message& signal) noexcept override { print(signal.member(), signal.counts()); }
    void strangerSignalled(const std::string& /*sender*/) noexcept override {}

    Service service_;
    bool json_;
};

void Watcher::print(const std::string& name, const std::vector<uint32_t>& values) const {
    const auto now = std::chrono::system_clock::now();
    std::cout << (json_ ? eventJson(now, name, values) : eventLine(now, name, values)) << std::flush;
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

void watch(const Options& options) { Watcher(options.json).run(); }

} // namespace Vardctl
