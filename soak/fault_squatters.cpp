// What ordinary accounts do: somebody without a session in the places of displays, and a home that never answers.
#include "attacker.h"
#include "world.h"

#include <array>

namespace Soak {

using namespace Test;

namespace {

// Holds one socket for each display, by turns until it has them all.
constexpr const char* holder = R"pl(
use Socket;
my ($last, $abstract, $listening) = @ARGV;
for (my %held;; select(undef, undef, undef, 0.002)) {
    for (grep { !$held{$_} } 33 .. $last) {
        socket(my $socket, AF_UNIX, SOCK_STREAM, 0);
        my $path = "/tmp/.X11-unix/X$_";
        bind($socket, $abstract ? pack("S", 1) . "\0$path" : sockaddr_un($path)) or next;
        listen($socket, 5) if $listening;
        $held{$_} = $socket;
    }
}
)pl";

/// One display, some, or all of the range are taken for a while by `command`, which finds the last one in $last.
/// Abstract names can be had in the moment of a restart alone: the service holds them.
std::function<void(World&)> squat(const std::string& command, bool restart = false) {
    return [=](World& world) {
        writeFile("/tmp/holder.pl", holder);
        world.table.victim(world.squatter.uid());
        attackAs(world.squatter, "last=" + std::to_string(world.oneOf(std::array{33, 36, 54})) + "; " + command);
        world.pause(200, 200);
        if (restart) {
            world.keeper->killService();
        }
        world.pause(1000, 3000);
        shell(
            "while pkill -KILL -u squatter; do sleep 0.02; done; find /tmp -maxdepth 1 -user squatter -exec rm -rf {} "
            "+;"
            "find /tmp/.X11-unix -user squatter -delete");
    };
}

std::string plant(const std::string& command) {
    return "while sleep 0.005; do for d in $(seq 33 $last); do " + command + "; done; done";
}

/// The user's service files never answer while the object lives; then all who waited go on.
class HangingHome {
public:
    explicit HangingHome(Victim& victim) : account_(victim->account()) { hangFiles(account_, ".vard"); }
    ~HangingHome() { shell("pkill -KILL -u " + account_.name() + " perl; rm -rf " + account_.home() + "/.vard"); }
    HangingHome(const HangingHome&) = delete;
    HangingHome& operator=(const HangingHome&) = delete;

private:
    const Account& account_;
};

/// A login and a notice for one whose home hangs; or the service is killed, and the next one must come up meanwhile.
std::function<void(World&)> hangHome(bool thenKill) {
    return [=](World& world) {
        Victim victim(world);
        victim->session();
        const HangingHome home(victim);
        victim->login();
        if (thenKill) {
            victim->lose();
            world.keeper->killService();
        } else {
            victim->call("vardSendNotify", "ssy", "header", "message", 1);
            world.pause(0, 2000);
            victim->giveUp();
        }
        world.pause(0, 1000);
    };
}

} // namespace

std::vector<Fault> squatterFaults() {
    return {{"home hangs", hangHome(false)},
            {"home hangs, service killed", hangHome(true), true},
            {"abstract names bound at a restart", squat("exec perl /tmp/holder.pl $last 1 0", true), true},
            {"abstract names listening at a restart", squat("exec perl /tmp/holder.pl $last 1 1", true), true},
            {"sockets bound", squat("exec perl /tmp/holder.pl $last 0 0")},
            {"sockets listening", squat("exec perl /tmp/holder.pl $last 0 1")},
            {"directories planted in a loop", squat(plant("mkdir -p /tmp/.X11-unix/X$d/full"))},
            {"locks planted in a loop", squat(plant("set -C; printf \"%10d\\n\" 1 >/tmp/.X$d-lock"))}};
}

} // namespace Soak
