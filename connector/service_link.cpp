// The doors' side of the service's bus interface.
#include "service_link.h"

#include <systemd/sd-journal.h>

#include <exception>

namespace Doors {

namespace {

// The library's C code lies below, through which nothing may be thrown.
template <typename Action>
void guarded(const std::string& what, Action action) noexcept {
    try {
        action();
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "%s: exception: %s", what.c_str(), err.what());
    }
}

constexpr size_t mostUnanswered = 64;

// True for an answer that is none.
bool isRefusal(const BusClient::Message& answer, const char* what) {
    const sd_bus_error* error = sd_bus_message_get_error(answer.get());
    if (error != nullptr) {
        sd_journal_print(LOG_ERR, "%s: the service refused: %s: %s", what, error->name,
                         BusClient::textOf(error->message).c_str());
    }
    return error != nullptr;
}

} // namespace

ServiceLink::ServiceLink(asio::io_context& loop, Handler& handler)
    : handler_(handler), source_(loop, bus_, [this] { handler_.busLost(); }) {}

void ServiceLink::serviceAppeared() noexcept {
    guarded("serviceAppeared", [this] { handler_.serviceStarted(); });
}

void ServiceLink::serviceLeft() noexcept {
    guarded("serviceLeft", [this] { handler_.serviceStopped(); });
}

void ServiceLink::signalCame(BusClient::Message& signal) noexcept {
    const auto name = signal.member();
    guarded(name, [&] { dispatch(name, signal.counts()); });
}

void ServiceLink::strangerSignalled(const std::string& sender) noexcept {
    sd_journal_print(LOG_WARNING, "%s: a signal of a stranger, ignored: %s", "signalReceived", sender.c_str());
}

void ServiceLink::dispatch(const std::string& signal, const std::vector<uint32_t>& values) {
    const size_t declared = signal == "signalVardStopped" ? 0 : signal == "signalProxyAllowConnection" ? 2 : 1;
    if (values.size() < declared) {
        sd_journal_print(LOG_WARNING, "%s: not as declared", signal.c_str());
    } else if (signal == "signalVardStopped") {
        handler_.serviceStopped();
    } else if (signal == "signalProxyAllowConnection") {
        handler_.allowConnection(values[0], values[1]);
    } else if (signal == "signalProxyListenTimeout") {
        handler_.listenTimeout(values[0]);
    } else if (signal == "signalSessionShutdown") {
        handler_.sessionShutdown(values[0]);
    }
}

void ServiceLink::send(const BusClient::Message& call, BusClient::Connection::Handler answered) {
    calls_.push_back({call, std::move(answered)});
    sendNext();
}

// The bus answers itself, with an error, when a connection has more than so many questions open (128 by default).
void ServiceLink::sendNext() {
    while (!calls_.empty() && unanswered_ < mostUnanswered) {
        const auto call = std::move(calls_.front());
        calls_.pop_front();
        bus_.send(call.message, [this, answered = call.answered](BusClient::Message& answer) {
            --unanswered_;
            answered(answer);
            guarded("sendNext", [this] { sendNext(); });
        });
        ++unanswered_;
    }
    source_.sent();
}

void ServiceLink::askSessions(std::function<void(const std::optional<std::vector<uint32_t>>& sessions)> answered) {
    constexpr const char* method = "vardSessions";
    send(bus_.newCall(BusClient::serviceName, method, ""),
         [answered = std::move(answered)](BusClient::Message& answer) {
             const auto number = [&answer] {
                 answer.text(); // the user's name
                 return answer.count();
             };
             guarded(method, [&] {
                 const bool none = isRefusal(answer, method) || answer.signature() != "a(su)";
                 answered(none ? std::nullopt
                               : std::optional(answer.list("(su)", [&] { return answer.structure("su", number); })));
             });
         });
}

void ServiceLink::askSession(uint32_t session, std::function<void(const std::optional<std::string>& json)> answered) {
    constexpr const char* method = "vardSessionInfoJson";
    send(bus_.newCall(BusClient::serviceName, method, "u", session),
         [answered = std::move(answered)](BusClient::Message& answer) {
             guarded(method, [&] {
                 const bool none = isRefusal(answer, method) || answer.signature() != "s";
                 answered(none ? std::nullopt : std::optional(answer.text()));
             });
         });
}

template <typename... Args>
void ServiceLink::report(const char* method, const char* types, Args... args) {
    send(bus_.newCall(BusClient::serviceName, method, types, args...),
         [method](const BusClient::Message& answer) { isRefusal(answer, method); });
}

void ServiceLink::reportListening(uint32_t session, bool success) {
    report("proxyListenStarted", "ub", session, static_cast<int>(success));
}

void ServiceLink::reportClient(uint32_t session, const std::string& address) {
    report("proxyClientConnected", "us", session, address.c_str());
}

void ServiceLink::reportConnected(uint32_t session, uint32_t pid, const std::string& address) {
    report("proxySessionConnected", "uus", session, pid, address.c_str());
}

void ServiceLink::reportSecurity(uint32_t session, bool nla, bool tls, bool rdp) {
    report("vardRdpSecurityPolicy", "ubbb", session, static_cast<int>(nla), static_cast<int>(tls),
           static_cast<int>(rdp));
}

} // namespace Doors
