// Garbage over the bus and in the configuration.
#include "file_descriptor.h"
#include "service.h"
#include "world.h"

#include <poll.h>
#include <sys/inotify.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>

namespace Soak {

using namespace Test;

namespace {

constexpr uint64_t callLimit = 60'000'000; // microseconds
constexpr std::array<uint64_t, 5> ids{0, 1U << 31, 4294967295U, 100000U, 2147483647U}; // no session's, no process's

/// The types of each method's arguments; without the method that would end the service, as it should.
std::map<std::string, std::string> readMethods() {
    std::istringstream lines(
        mustRun("busctl introspect --no-legend ru.korvex.vard /ru/korvex/vard ru.korvex.vard | "
                "awk '$2 == \"method\" && $1 != \".busServiceShutdown\" { print substr($1, 2), $3 }'"));
    std::map<std::string, std::string> methods{{"noSuchMethod", "s"}};
    for (std::string name, types; lines >> name >> types;) {
        methods[name] = types == "-" ? "" : types;
    }
    return methods;
}

/// Any text that the bus carries: no zero bytes, valid UTF-8.
std::string randomText(World& world, int size) {
    static const std::array<std::string, 10> pieces{"a", "%s", "%n", "\n", "\"", "{", "/../", "\xC3\xA9", "\x01", "%{"};
    std::string text;
    while (text.size() < static_cast<size_t>(size)) {
        text += world.oneOf(pieces);
    }
    return text;
}

void append(World& world, sd_bus_message* message, char type, const std::string& text) {
    if (type == 'v') {
        sd_bus_message_append(message, "v", "s", text.c_str());
    } else if (type == 's') {
        sd_bus_message_append_basic(message, type, text.c_str());
    } else {
        sd_bus_message_append_basic(message, type, &world.oneOf(ids)); // smaller types are its first bytes
    }
}

/// Calls methods with texts of these sizes, half of them with a signature that may be wrong when `wrongTypes` says so.
void callSome(World& world, int count, const std::vector<int>& sizes, bool wrongTypes) {
    const auto methods = readMethods();
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0) {
        throw std::runtime_error("no bus");
    }
    for (; count > 0; --count) {
        auto [name, types] = world.oneOf(methods);
        if (wrongTypes && world.pick(0, 1) == 1) {
            types.assign(static_cast<size_t>(world.pick(0, 8)), ' ');
            std::ranges::generate(types, [&] { return world.oneOf(std::string("sbyqiuxtdv")); });
        }
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(bus, &message, busName, busPath, busName, name.c_str());
        for (const char type : types) {
            append(world, message, type, randomText(world, world.oneOf(sizes)));
        }
        sd_bus_message* reply = nullptr;
        sd_bus_call(bus, message, callLimit, nullptr, &reply); // an error is an answer too
        sd_bus_message_unref(reply);
        sd_bus_message_unref(message);
    }
    sd_bus_flush_close_unref(bus);
}

// Whole seconds of the file's time count, and the service's first look at it only records it: until it is read.
void reload(const std::string& text) {
    static int stamp = 0;
    writeFile(Keeper::configFile, text);
    const Vard::FileDescriptor watch(::inotify_init1(IN_CLOEXEC));
    ::inotify_add_watch(watch.get(), Keeper::configFile, IN_CLOSE_NOWRITE);
    pollfd entry{watch.get(), POLLIN, 0};
    for (int tries = 0; tries < 10; ++tries) {
        std::filesystem::last_write_time(Keeper::configFile,
                                         std::filesystem::file_time_type::clock::now() + std::chrono::seconds(++stamp));
        if (::poll(&entry, 1, 5000) == 1) {
            return;
        }
    }
    throw std::runtime_error("the configuration was not read");
}

std::string garbageText(World& world, const std::string& good) {
    const std::string longText(300'000, 'x');
    const std::array<std::string, 9> texts{
        "",
        "{",
        "[1, 2]",
        randomText(world, 5000),
        std::string(100'000, '['),
        good.substr(0, good.size() / 2),
        R"({"display:min": "a hundred", "display:max": [], "xvfb:args": 5, "seamless:timeout": {}, "session:path": 7})",
        R"({"display:min": -2147483648, "display:max": 2147483647, "runtime:xdg": "%{uid}/%{uid}"})",
        R"({"debug:level": ")" + longText + R"(", "pam:service": ")" + longText + "\"}"};
    return world.oneOf(texts);
}

// Sessions that begin meanwhile are begun as the garbage says; those that run must not notice.
void reloadGarbage(World& world) {
    const std::string good = readFile(Keeper::configFile);
    reload(garbageText(world, good));
    world.pause(100, 500);
    Journal journal;
    reload(good);
    if (!journal.waitFor("reloadConfigWatcher: success")) {
        throw std::runtime_error("the good configuration is not in force again");
    }
}

} // namespace

std::vector<Fault> garbageFaults() {
    const auto calls = [](World& world) { callSome(world, world.pick(20, 60), {0, 1, 16, 300, 5000}, true); };
    const auto longCalls = [](World& world) {
        callSome(world, world.pick(5, 15), {60'000, 300'000, 1'000'000}, false);
    };
    return {{"garbage reloaded", reloadGarbage, false, true},
            {"garbage calls", calls},
            {"calls with long texts", longCalls}};
}

} // namespace Soak
