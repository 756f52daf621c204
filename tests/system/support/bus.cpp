// A client of the service on the system bus, written against the interface alone.
#include "bus.h"

#include "machine.h"

#include <stdexcept>

namespace Test {

namespace {

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + " failed: " + std::to_string(-result));
    }
}

struct UnrefMessage {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, UnrefMessage>;

std::string nextText(sd_bus_message* answer) {
    const char* text = nullptr;
    sd_bus_message_read(answer, "s", &text);
    return text;
}

int64_t nextNumber(sd_bus_message* answer, char type) {
    uint32_t number = 0;
    sd_bus_message_read_basic(answer, type, &number);
    return type == 'u' ? int64_t{number} : static_cast<int32_t>(number);
}

void readRows(sd_bus_message* answer, Reply& reply) {
    const std::string fields = reply.type.substr(2, reply.type.size() - 3);
    sd_bus_message_enter_container(answer, 'a', reply.type.c_str() + 1);
    while (sd_bus_message_enter_container(answer, 'r', fields.c_str()) > 0) {
        auto& row = reply.rows.emplace_back();
        for (const char type : fields) {
            row.push_back(type == 's' ? nextText(answer) : std::to_string(nextNumber(answer, type)));
        }
        sd_bus_message_exit_container(answer);
    }
}

void readResult(sd_bus_message* answer, Reply& reply) {
    reply.type = sd_bus_message_get_signature(answer, 1);
    if (reply.type == "s") {
        reply.text = nextText(answer);
    } else if (reply.type == "d") {
        sd_bus_message_read(answer, "d", &reply.real);
    } else if (reply.type == "as") {
        sd_bus_message_enter_container(answer, 'a', "s");
        while (sd_bus_message_at_end(answer, 0) == 0) {
            reply.texts.push_back(nextText(answer));
        }
    } else if (reply.type.starts_with("a(")) {
        readRows(answer, reply);
    } else if (!reply.type.empty()) {
        reply.number = nextNumber(answer, reply.type[0]);
    }
}

} // namespace

Bus::Bus(std::chrono::seconds limit) : limit_(limit) {
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "sd_bus_open_system");
    bus_.reset(bus);
}

sd_bus_message* Bus::newCall(const char* interface, const char* method) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &message, busName, busPath, interface, method), "new call");
    return message;
}

Reply Bus::send(sd_bus_message* message) {
    const Message call(message);
    sd_bus_error error{};
    sd_bus_message* answer = nullptr;
    const int result = sd_bus_call(bus_.get(), message, static_cast<uint64_t>(limit_.count()), &error, &answer);
    const Message owner(answer);
    Reply reply;
    if (result < 0) {
        reply.error = error.name != nullptr ? error.name : "errno " + std::to_string(-result);
        reply.text = error.message != nullptr ? error.message : "";
    } else {
        readResult(answer, reply);
    }
    sd_bus_error_free(&error);
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

bool Bus::owned() { return sd_bus_get_name_creds(bus_.get(), busName, 0, nullptr) >= 0; }

Signals::Signals() {
    check(sd_bus_match_signal(bus_.bus_.get(), nullptr, nullptr, busPath, busName, nullptr, received, this), "match");
}

Signals::~Signals() = default;

int Signals::received(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    Signal signal{sd_bus_message_get_member(message), {}};
    uint32_t value = 0;
    while (sd_bus_message_read(message, "u", &value) > 0) {
        signal.args.push_back(value);
    }
    static_cast<Signals*>(self)->signals_.push_back(signal);
    return 0;
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
        if (sd_bus_process(bus_.bus_.get(), nullptr) == 0) {
            sd_bus_wait(bus_.bus_.get(), 1'000'000);
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
