// A client of the service on the system bus, written against the interface alone.
#include "bus.h"

#include "bus_client/service_watch.h"
#include "machine.h"

#include <stdexcept>

namespace Test {

namespace {

int64_t readNumber(BusClient::Message& answer, char type) {
    switch (type) {
        case 'b':
            return answer.flag() ? 1 : 0;
        case 'i':
            return answer.number();
        default:
            return answer.count();
    }
}

void readRows(BusClient::Message& answer, Reply& reply) {
    const std::string fields = reply.type.substr(2, reply.type.size() - 3);
    const auto readRow = [&] {
        std::vector<std::string> row;
        for (const char type : fields) {
            row.push_back(type == 's' ? answer.text() : std::to_string(readNumber(answer, type)));
        }
        return row;
    };
    reply.rows = answer.list("(" + fields + ")", [&] { return answer.structure(fields, readRow); });
}

void readResult(BusClient::Message& answer, Reply& reply) {
    reply.type = answer.signature();
    if (reply.type == "s") {
        reply.text = answer.text();
    } else if (reply.type == "d") {
        reply.real = answer.real();
    } else if (reply.type == "as") {
        reply.texts = answer.texts();
    } else if (reply.type.starts_with("a(")) {
        readRows(answer, reply);
    } else if (!reply.type.empty()) {
        reply.number = readNumber(answer, reply.type[0]);
    }
}

} // namespace

Reply Bus::send(const BusClient::Message& call) {
    Reply reply;
    try {
        auto answer = connection_.wait(call, limit_);
        readResult(answer, reply);
    } catch (const BusClient::Error& error) {
        reply.error = error.name();
        reply.text = error.what();
    }
    return reply;
}

int64_t Bus::login(const std::string& user, uint16_t width, uint16_t height) {
    const auto reply = call("busSessionRequest", "ssyqq", user.c_str(), "secret", 24, width, height);
    if (!reply.ok()) {
        throw std::runtime_error("busSessionRequest: " + reply.error + ": " + reply.text);
    }
    return reply.number;
}

std::string Bus::session(uint32_t sid) { return call("vardSessionInfoJson", "u", sid).text; }

Signals::Signals() {
    connection_.subscribe(BusClient::interfaceSignals, [this](BusClient::Message& message) {
        signals_.push_back({message.member(), message.counts()});
    });
}

std::vector<Signal> Signals::upTo(const std::string& name) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::vector<Signal> taken;
    while (std::chrono::steady_clock::now() < end) {
        while (!signals_.empty()) {
            taken.push_back(signals_.front());
            signals_.pop_front();
            if (taken.back().name == name) {
                return taken;
            }
        }
        if (!connection_.process()) {
            sd_bus_wait(connection_.get(), 1'000'000);
        }
    }
    throw std::runtime_error("signal did not come: " + name);
}

namespace {
constexpr const char* loosePolicy = "/etc/dbus-1/system.d/loose.conf";
constexpr const char* reloadPolicies = "busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig";
} // namespace

LoosePolicy::LoosePolicy() {
    writeFile(loosePolicy,
              "<busconfig><policy context=\"mandatory\"><allow send_destination=\"ru.korvex.vard\"/>"
              "<allow send_interface=\"ru.korvex.vard\"/></policy></busconfig>");
    mustRun(reloadPolicies);
}

LoosePolicy::~LoosePolicy() { shell(std::string("rm ") + loosePolicy + "; " + reloadPolicies); }

} // namespace Test
