// Faults of the service's children, of the service itself, and of its bus.
#include "world.h"

#include <csignal>
#include <functional>
#include <string>
#include <vector>

namespace Soak {

using namespace Test;
using namespace std::chrono_literals;

namespace {

/// A signal for a process of a user's session, or for its children; the session is over with its death, or told to be.
std::function<void(World&)> signalled(const char* process, int number, bool children = false) {
    return [=](World& world) {
        Victim victim(world);
        const int pid = victim->session()[process].asInt();
        for (const int target : children ? childrenOf(pid) : std::vector{pid}) {
            ::kill(target, number);
        }
        world.pause(0, 1000);
        number == SIGKILL ? victim->lose() : victim->giveUp();
    };
}

/// The tool of that name does to itself what the signal says; the session stays, and so do the others.
std::function<void(World&)> tool(const char* name, const char* signal) {
    return [=](World& world) {
        Victim victim(world);
        victim->session();
        const std::string order = victim.home() + "/.soak_" + name;
        writeFile(order, std::string(signal) + "\n");
        victim->login();
        shell("rm " + order);
    };
}

/// A session whose program does this, which ends it, and then one that must stay.
std::function<void(World&)> programDoes(const std::string& commands) {
    return [=](World& world) {
        Victim victim(world);
        victim->session();
        victim->giveUp();
        writeFile(victim.home() + "/.soak_program", "rm -f ~/.soak_program; " + commands);
        victim->begin();
        victim->lose();
        victim->begin();
    };
}

void killAll(World& world) {
    Victim victim(world);
    victim->session();
    shell("pkill -KILL -u " + victim->account().name()); // the machine is the program's own
    victim->lose();
}

void restartBus(World& world) {
    const int before = world.keeper->generation();
    mustRun("pkill -KILL -f '^dbus-daemon --system'; rm -f /run/dbus/system_bus_socket");
    world.pause(0, 1000);
    mustRun("dbus-daemon --system --fork --nopidfile");
    world.keeper->comeBack(before);
}

} // namespace

std::vector<Fault> childFaults() {
    return {{"X server killed", signalled("pid1", SIGKILL)},
            {"X server stopped", signalled("pid1", SIGSTOP)},
            {"supervisor killed", signalled("pid2", SIGKILL)},
            {"supervisor stopped", signalled("pid2", SIGSTOP)},
            {"program killed", signalled("pid2", SIGKILL, true)},
            {"program stopped", signalled("pid2", SIGSTOP, true)},
            {"deaf program kills its supervisor", programDoes("trap '' TERM; sleep 0.3; kill -KILL $PPID\n")},
            {"program leaves deaf children", programDoes("(trap '' TERM; exec sleep 1000) & sleep 0.3; exit\n")},
            {"tool killed", tool("xrandr", "KILL")},
            {"tool stopped", tool("xrandr", "STOP")},
            {"hash tool killed", tool("winpr-hash", "KILL")},
            {"hash tool stopped", tool("winpr-hash", "STOP")},
            {"all of a user's killed", killAll},
            {"bus restarted", restartBus, true},
            {"service killed", [](World& world) { world.keeper->killService(); }, true}};
}

} // namespace Soak
