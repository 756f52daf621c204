// A machine that is short of something, and a clock that moves.
#include "world.h"

#include <sys/resource.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace Soak {

using namespace Test;

namespace {

constexpr const char* leftOut =
    std::string_view(ODD_MACHINE).empty() ? "the sanitizers' library is the first of the service's" : "";

/// Seconds that the service's clock is ahead, and whether it gets neither processes nor threads.
void setOddMachine(int64_t clockAhead, int64_t noProcesses) {
    const std::array<int64_t, 2> machine{clockAhead, noProcesses};
    std::fstream file(ODD_MACHINE_FILE, std::ios::in | std::ios::out | std::ios::binary);
    if (!file.write(reinterpret_cast<const char*>(&machine), sizeof machine).flush()) {
        throw std::runtime_error("no odd machine");
    }
}

/// Sets the service's own limit of a kind, for a while.
void limitFor(World& world, __rlimit_resource kind, rlim_t value) {
    const int pid = world.keeper->pid();
    rlimit before{};
    if (::prlimit(pid, kind, nullptr, &before) != 0) {
        throw std::runtime_error("prlimit");
    }
    const rlimit little{value, before.rlim_max};
    ::prlimit(pid, kind, &little, nullptr);
    world.pause(500, 2500);
    ::prlimit(pid, kind, &before, nullptr);
}

void fillRuntimeDirectory(World& world) {
    shell("cat /dev/zero >/run/vard/filler");
    world.pause(500, 2500);
    mustRun("rm /run/vard/filler");
}

// Fewer than there are: what ends meanwhile makes no room.
void takeDescriptors(World& world) {
    const std::filesystem::directory_iterator open("/proc/" + std::to_string(world.keeper->pid()) + "/fd");
    limitFor(world, RLIMIT_NOFILE, static_cast<rlim_t>(world.pick(3, static_cast<int>(std::distance(open, {})))));
}

// No limit counts for root: its own forks and threads fail beside its users'.
void takeProcesses(World& world) {
    setOddMachine(0, 1);
    limitFor(world, RLIMIT_NPROC, 0);
    setOddMachine(0, 0);
}

// Moved for the service alone, by hours or by years; a session that begins then tells the moved time.
void moveClock(World& world) {
    const int64_t move = world.oneOf(std::array<int64_t, 4>{-400L * 86400, -3600, 3600, 400L * 86400});
    Victim victim(world);
    victim->session();
    victim->giveUp();
    setOddMachine(move, 0);
    const auto told = victim->session()["start"].asInt64() - std::time(nullptr) - move;
    world.pause(500, 2500);
    setOddMachine(0, 0);
    if (told < -600 || told > 600) {
        throw std::runtime_error("the clock did not move");
    }
}

} // namespace

std::vector<Fault> scarcityFaults() {
    return {{"runtime directory full", fillRuntimeDirectory, false, true},
            {"no more descriptors", takeDescriptors, false, true},
            {"no more processes", takeProcesses, false, true, leftOut},
            {"clock moved (the service's alone)", moveClock, false, false, leftOut}};
}

} // namespace Soak
