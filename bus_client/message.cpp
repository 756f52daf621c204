// A message of the bus, and how a call fails.
#include "message.h"

namespace BusClient {

namespace {

void expect(bool asExpected) {
    if (!asExpected) {
        throw Error("", "the service's answer is not of the expected type");
    }
}

} // namespace

std::string textOf(const char* value) { return value != nullptr ? value : ""; }

template <typename Value>
Value Message::next(char type) {
    Value value{};
    expect(sd_bus_message_read_basic(get(), type, &value) > 0);
    return value;
}

std::string Message::text() { return next<const char*>('s'); }

bool Message::flag() { return next<int>('b') != 0; } // the library writes an int

int32_t Message::number() { return next<int32_t>('i'); }

uint32_t Message::count() { return next<uint32_t>('u'); }

double Message::real() { return next<double>('d'); }

std::vector<std::string> Message::texts() {
    return list("s", [this] { return text(); });
}

std::vector<uint32_t> Message::counts() {
    std::vector<uint32_t> result;
    for (uint32_t value = 0; sd_bus_message_read_basic(get(), 'u', &value) > 0;) {
        result.push_back(value);
    }
    return result;
}

void Message::enter(char kind, const std::string& contents) {
    expect(sd_bus_message_enter_container(get(), kind, contents.c_str()) > 0);
}

bool Message::atEnd() { return sd_bus_message_at_end(get(), 0) != 0; }

void Message::leave() { expect(sd_bus_message_exit_container(get()) >= 0); }

std::string Message::signature() const { return textOf(sd_bus_message_get_signature(get(), 1)); }

std::string Message::member() const { return textOf(sd_bus_message_get_member(get())); }

std::string Message::sender() const { return textOf(sd_bus_message_get_sender(get())); }

} // namespace BusClient
