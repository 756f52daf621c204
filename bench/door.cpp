// What the connector's door costs: real clients and transports beside the transport's own port, and crowds before it.
#include "house.h"
#include "stand_in.h"
#include "viewer.h"
#include "visitor.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace Test;
using Bench::askFor;
using Bench::Connector;
using Bench::House;
using Bench::OwnTransport;
using Bench::Viewer;
using Bench::Visitor;
using Clock = std::chrono::steady_clock;

constexpr uint16_t doorPort = 3389;
const std::string doorPlace = "127.0.0.1:3389";
const std::string otherPlace = "192.0.2.7"; // this machine, too, but to the door another neighbour
const std::string ownPlace = "127.0.0.1:4000";
const std::string raised = "--strangers 100000 --strangers-total 100000 --arrivals 100000 --arrivals-total 100000";

double seconds(const std::function<void()>& work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double quantile(std::vector<double> values, double part) {
    std::ranges::sort(values);
    return values[static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
}
double median(const std::vector<double>& values) { return quantile(values, 0.5); }

__attribute__((format(printf, 2, 3))) void row(const char* what, const char* format, ...) {
    std::printf("%-34s ", what);
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::printf("\n");
}

void spread(const char* what, const std::vector<double>& times) {
    row(what, "median %.0f ms, quartiles %.0f and %.0f, least %.0f, most %.0f, of %zu", median(times) * 1e3,
        quantile(times, 0.25) * 1e3, quantile(times, 0.75) * 1e3, quantile(times, 0) * 1e3, quantile(times, 1) * 1e3,
        times.size());
}

double withoutDoor(const std::function<double()>& figure) {
    const OwnTransport transport;
    return figure();
}

double answerTime(uint16_t port) {
    return seconds([=] {
        const Visitor visitor(port);
        visitor.say(askFor("alice"));
        if (!visitor.hearAnswer()) {
            throw std::runtime_error("no answer to the first packet");
        }
    });
}

// xfreerdp looks for the answers to a dozen of its packets every 100 ms: it takes up to a second more when they come a
// moment too late, whichever way it came. So both ways take turns, and what the door itself adds, which is before the
// answer to the first packet, is measured without xfreerdp, too.
void firstPicture() {
    constexpr int rounds = 21;
    const Bench::Screen screen;
    Connector connector;
    std::vector<double> picture[2];
    std::vector<double> answer[2];
    for (int i = 0; i < rounds; ++i) {
        connector.waitUntilOpen();
        picture[0].push_back(Viewer(screen, doorPlace).seconds());
        connector.waitUntilOpen();
        answer[0].push_back(answerTime(doorPort));
        picture[1].push_back(withoutDoor([&] { return Viewer(screen, ownPlace).seconds(); }));
        answer[1].push_back(withoutDoor([] { return answerTime(OwnTransport::port); }));
    }
    spread("first picture, through the door", picture[0]);
    spread("first picture, own port", picture[1]);
    spread("first answer, through the door", answer[0]);
    spread("first answer, own port", answer[1]);
    row("", "medians: picture %+.0f ms, answer %+.0f ms (at most 50)", (median(picture[0]) - median(picture[1])) * 1e3,
        (median(answer[0]) - median(answer[1])) * 1e3);
}

uint64_t loopbackBytes() {
    std::istringstream fields(shell("awk '$1 == \"lo:\" {print $2}' /proc/net/dev").text);
    uint64_t bytes = 0;
    fields >> bytes;
    return bytes;
}

// Text runs through a terminal in the session as fast as it can. Nothing but the client's connection is on the
// loopback.
double streamRate() {
    const int terminal = launch(
        "DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 exec xterm -geometry 100x35+0+0 "
        "-e base64 -w 99 /dev/urandom");
    const auto before = loopbackBytes();
    waitUntil([&] { return loopbackBytes() > before + (1 << 20); });
    const auto begin = loopbackBytes();
    const double time = seconds([] { std::this_thread::sleep_for(std::chrono::seconds(5)); });
    const auto bytes = loopbackBytes() - begin;
    ::kill(terminal, SIGTERM);
    waitUntil([=] { return ::kill(terminal, 0) != 0; });
    return static_cast<double>(bytes) / time;
}

void stream() {
    constexpr int rounds = 7;
    const Bench::Screen screen;
    Connector connector;
    std::vector<double> door;
    std::vector<double> own;
    for (int i = 0; i < rounds; ++i) {
        connector.waitUntilOpen();
        {
            const Viewer viewer(screen, doorPlace);
            door.push_back(streamRate());
        }
        connector.waitUntilOpen();
        const OwnTransport transport;
        const Viewer viewer(screen, ownPlace);
        own.push_back(streamRate());
    }
    row("a busy screen", "%.0f KiB/s through the door, %.0f own port, ratio %.2f (at least 0.9)", median(door) / 1024,
        median(own) / 1024, median(door) / median(own));
}

const std::string& thisProgram() {
    static const std::string path = mustRun("readlink -n /proc/" + std::to_string(::getpid()) + "/exe");
    return path;
}

Visitor served(uint16_t port, char order, const std::string& request = askFor("alice")) {
    Visitor visitor(port);
    visitor.say(request);
    if (!visitor.hearAnswer()) {
        throw std::runtime_error("a visitor was not let in");
    }
    visitor.say(std::string(1, order));
    return visitor;
}

double flowRate(uint16_t port) {
    const auto visitor = served(port, StandIn::Flow);
    return static_cast<double>(visitor.listenFor(2)) / 2;
}

// The median time of an answer of one byte.
double echoTime(uint16_t port) {
    const auto visitor = served(port, StandIn::Echo);
    constexpr int rounds = 5000;
    std::vector<double> times;
    times.reserve(rounds);
    for (int i = 0; i < rounds; ++i) {
        times.push_back(seconds([&] {
            visitor.say("x");
            (void)!visitor.hear(1);
        }));
    }
    return median(times);
}

void relay() {
    Connector connector("--transport " + thisProgram());
    const auto measure = [&](double (*figure)(uint16_t port), std::vector<double>& door, std::vector<double>& own) {
        connector.waitUntilOpen();
        door.push_back(figure(doorPort));
        connector.waitUntilOpen();
        const OwnTransport transport(thisProgram());
        own.push_back(figure(OwnTransport::port));
    };
    std::vector<double> rate[2];
    std::vector<double> echo[2];
    for (int i = 0; i < 5; ++i) {
        measure(flowRate, rate[0], rate[1]);
        measure(echoTime, echo[0], echo[1]);
    }
    row("stand-in transport, one flow", "%.0f MiB/s through the door, %.0f own port, ratio %.2f",
        median(rate[0]) / (1 << 20), median(rate[1]) / (1 << 20), median(rate[0]) / median(rate[1]));
    row("stand-in transport, one byte", "%.0f us there and back through the door, %.0f own port", median(echo[0]) * 1e6,
        median(echo[1]) * 1e6);
}

// Every connection has sent and got enough to have used its buffers.
void crowd(House& house) {
    std::optional<Connector> connector(std::in_place, "--transport " + thisProgram() + " " + raised);
    house.logInTheOthers();
    connector->waitUntilOpen(House::sessions);
    const long rss = connector->memory("Rss");
    const long pss = connector->memory("Pss:");
    row("200 sessions, nobody there", "%s", connector->state().c_str());
    std::vector<Visitor> guests;
    const double time = seconds([&] {
        for (int i = 0; i < House::sessions; ++i) {
            guests.push_back(served(doorPort, StandIn::Echo, askFor(static_cast<uint32_t>(33 + i))));
        }
    });
    const std::string block(size_t{64} * 1024, 'x');
    for (const auto& guest : guests) {
        guest.say(block);
    }
    for (const auto& guest : guests) {
        (void)!guest.hear(block.size());
    }
    const auto here = std::ranges::count_if(guests, [](const Visitor& guest) { return !guest.sentAway(); });
    row("200 served at once", "%s", connector->state().c_str());
    row("", "%td of %d still there, joined in %.1f s", here, House::sessions, time);
    row("memory for each", "%.1f KiB resident, %.1f KiB proportional (at most 64)",
        static_cast<double>(connector->memory("Rss") - rss) / House::sessions,
        static_cast<double>(connector->memory("Pss:") - pss) / House::sessions);
    row("reports that the bus refused", "%zu", connector->said("the service refused"));
    guests.clear();
    connector.reset();
    connector.emplace("--transport " + thisProgram());
    waitUntil([&] { return connector->said(", open") == House::sessions; }, std::chrono::seconds(15));
    row("after the connector's restart", "%zu of %d sessions are open", connector->said(", open"), House::sessions);
}

void flood(const char* what, const std::string& options, int count, int naming) {
    constexpr int rounds = 10;
    mustRun("ip address replace " + otherPlace + "/32 dev lo");
    const Bench::Screen screen;
    Connector connector(options);
    std::vector<double> alone;
    std::vector<double> beside;
    std::vector<double> kept;
    for (int i = 0; i < rounds; ++i) {
        connector.waitUntilOpen();
        alone.push_back(Viewer(screen, otherPlace).seconds());
        connector.waitUntilOpen();
        std::vector<Visitor> idle;
        for (int j = 0; j < count; ++j) {
            idle.emplace_back(doorPort).say(j < naming ? askFor("alice") : "");
        }
        const Viewer viewer(screen, otherPlace);
        beside.push_back(viewer.seconds());
        kept.push_back(
            static_cast<double>(std::ranges::count_if(idle, [](const Visitor& one) { return !one.sentAway(); })));
    }
    std::printf("%d idle connections of 127.0.0.1, %d name a user; a client from elsewhere, %s\n", count, naming, what);
    spread("  its first picture, alone", alone);
    spread("  beside them", beside);
    row("", "%.2f times the median alone, at the worst %.2f (at most 2); %.0f to %.0f were still there",
        median(beside) / median(alone), quantile(beside, 1) / median(alone), quantile(kept, 0), quantile(kept, 1));
}

// Each leaves at once, or, of fewer, when the transport has answered.
void inARow(const char* what, const std::string& options, int connections, bool patient) {
    Connector connector(options);
    connector.waitUntilOpen();
    std::printf("%d connections in a row that name a user%s, %s\n", connections, patient ? " and wait" : "", what);
    row("  before", "%s", connector.state().c_str());
    const size_t descriptors = connector.count("fd");
    int answered = 0;
    const double time = seconds([&] {
        for (int i = 0; i < connections; ++i) {
            const Visitor visitor(doorPort);
            visitor.say(askFor("alice"));
            answered += patient && visitor.hearAnswer() ? 1 : 0;
        }
    });
    connector.waitUntilOpen();
    waitUntil([&] { return connector.count("fd") <= descriptors; });
    row("  after", "%s", connector.state().c_str());
    row("", "%.2f ms each, %zu came to a transport, %d waited for its answer", time / connections * 1e3,
        connector.said(", client: 127"), answered);
}

} // namespace

int main(int argc, char** argv) {
    if (StandIn::wanted(argc, argv)) {
        return StandIn::run(argv);
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0); // a forked child must not print it again
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    House house;
    const std::set<std::string> parts(argv + 1, argv + argc);
    const auto part = [&](const char* name, const std::function<void()>& measure) {
        if (parts.empty() || parts.contains(name)) {
            measure();
        }
    };
    part("picture", firstPicture);
    part("stream", stream);
    part("relay", relay);
    part("one", [] { flood("limits as they are", "", 1, 1); });
    part("silent", [] { flood("limits raised", raised, 1000, 0); });
    part("flood", [] { flood("limits as they are", "", 1000, 500); });
    part("raised-flood", [] { flood("limits raised", raised, 1000, 500); });
    part("row", [] { inARow("limits as they are", "", 20000, false); });
    part("raised-row", [] { inARow("limits raised", raised, 20000, false); });
    part("patient-row", [] { inARow("limits raised", raised, 1000, true); });
    part("crowd", [&] { crowd(house); });
    return 0;
}
