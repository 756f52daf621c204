// All that the faults meet: the service, its users, an account that squats.
#include "world.h"

#include "service.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <thread>

namespace Soak {

using namespace Test;
using namespace std::chrono_literals;

namespace {

constexpr int userCount = 12;
constexpr auto restLimit = 60s; // stopped children are killed after ten seconds, and some faults stop two of a session

// A user's program starts another; the tools do to themselves what a file of their user's says.
constexpr const char* program = R"sh(#!/bin/sh
[ -r "$HOME/.soak_program" ] && . "$HOME/.soak_program"
sleep 1000 &
exec sleep 1000
)sh";
constexpr const char* tool = R"sh(#!/bin/sh
[ -r "$HOME/.soak_${0##*/}" ] && read -r signal <"$HOME/.soak_${0##*/}" && kill -"$signal" $$
exec "/usr/bin/${0##*/}" "$@"
)sh";

// Lines that begin with the owner. Descriptors and threads are counted, so that only more of them make new lines.
constexpr const char* listBelongings = R"sh(exec 2>/dev/null
cd /proc/$pid && {
    find fd -type l -printf '0 descriptor of %l\n' | sed 's/\[.*//' | awk '{ print $0 ", " ++count[$0] }'
    seq -f '0 thread %g' $(ls task | wc -l)
}
sed 's/^/0 mount /' /proc/self/mounts
find /run/vard /tmp/.X11-unix -mindepth 1 -not -name vard_service.pid -not -name session_users -not -path '/tmp/.X11-unix/X*.??????*' -printf '%U %p\n'
find /tmp -maxdepth 1 -name '.*lock*' -printf '%U %p\n')sh";

} // namespace

World::World(unsigned long seed) : random(static_cast<std::mt19937::result_type>(seed)) {
    makeFiles();
    keeper = std::make_unique<Keeper>(table);
    for (int i = 0; i < userCount; ++i) {
        users.push_back(std::make_unique<User>(*this, "user" + std::to_string(i), random()));
    }
    pause(2000, 3000);
    resting = true; // with what is loaded and cached once
    waitUntil([this] { return quiet() && keeper->family().empty(); }, restLimit);
    atRest_ = belongings();
    resting = false;
}

void World::makeFiles() {
    mustRun("mkdir -p /run/vard && mount -t tmpfs -o size=1m,mode=0755 tmpfs /run/vard");
    writeFile("/usr/local/bin/soak_program", program, 0755);
    writeFile("/usr/local/bin/xrandr", tool, 0755);
    writeFile("/usr/local/bin/winpr-hash", tool, 0755);
    const auto config = testConfig({{"session:path", "/usr/local/bin/soak_program"},
                                    {"xrandr:path", "/usr/local/bin/xrandr"},
                                    {"hash:path", "/usr/local/bin/winpr-hash"},
                                    {"debug:level", "info"}});
    writeFile(Keeper::configFile, config.toStyledString());
    if (!std::string_view(ODD_MACHINE).empty()) {
        mustRun("cp " ODD_MACHINE " /usr/local/lib/odd_machine.so && truncate -s 4096 " ODD_MACHINE_FILE);
    }
}

void World::pause(int low, int high) { std::this_thread::sleep_for(std::chrono::milliseconds(pick(low, high))); }

std::set<std::string> World::belongings() const {
    std::istringstream lines(keeper->family() +
                             shell("pid=" + std::to_string(keeper->pid()) + "\n" + listBelongings).text);
    std::set<std::string> result;
    for (std::string line; std::getline(lines, line);) {
        result.insert(line);
    }
    return result;
}

// What is left is at rest from now on, so that it is charged once.
void World::chargeLeft(std::chrono::seconds limit) {
    std::set<std::string> now;
    waitUntil([&] { return std::ranges::includes(atRest_, now = belongings()); }, limit);
    for (const auto& line : now) {
        if (atRest_.insert(line).second) {
            table.left(line, static_cast<unsigned>(std::stoul(line)));
        }
    }
}

bool World::quiet() const {
    return std::ranges::all_of(users, [](const auto& user) { return user->quiet(); });
}

void World::rest() {
    resting = true;
    const bool ended = waitUntil([this] { return quiet(); }, restLimit);
    if (!ended) {
        table.count(&Fault::broken, "sessions do not end");
    }
    chargeLeft(ended ? restLimit : 0s);
    table.rested();
    resting = false;
}

void World::finish() {
    resting = true;
    if (!keeper->stop()) {
        table.count(&Fault::broken, "the service does not stop in order");
    }
    chargeLeft(5s);
}

Victim::Victim(World& world)
    : user_(*world.users[static_cast<size_t>(world.pick(0, userCount - 1))]), lock_(user_.hold()) {
    world.table.victim(user_.account().uid());
}

} // namespace Soak
