// All that one account can do, at once, while others log in.
#include "attacker.h"

#include <algorithm>
#include <csignal>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class Together : public AttackTest {
protected:
    // Tools that hang, a server that nothing ends, a log that nobody can open, a session whose server is stopped.
    void begin() {
        writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
        const std::string hang = "sleep 100000 & [ $RANDOM -gt 16384 ] && kill -STOP $$; wait";
        startWith({{"xrandr:path", program("xrandr", hang, "exec /usr/bin/xrandr \"$@\"")},
                   {"hash:path", program("hash", hang, "echo a-line")},
                   {"xvfb:path", program("server", "[ ! -e ~/attack ] || { Xvfb \"$@\" & exec 3<~/hanging/file; }",
                                         "exec Xvfb \"$@\"")}});
    }
    void attackAll() {
        attack("touch ~/attack");
        hangFiles("hanging");
        hangFiles(".vard");
        squat(40, 44, true, false);
        squat(45, 48, false, true);
        attack("while true; do printf \"%10d\\n\" $$ >/tmp/.X33-lock; sleep 0.05; done 2>/dev/null");
        attack("while true; do pkill -STOP Xvfb; pkill -STOP vard_manager; sleep 0.3; done");
    }
    // One more session each, and one more size; then its program ends.
    void round(uint16_t width) {
        const auto started = std::chrono::steady_clock::now();
        const auto first = bus.call("busSessionRequest", "ssyqq", "mallory", "secret", 24, width, 480).number;
        const auto* clock = R"({"username":"mallory","password":"x","program":"Clock"})";
        bus.call("vardSessionRequest", "s", clock);
        if (first > 0) {
            bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(first));
        }
        figure("a round of the attacker's took",
               std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    }
};

TEST_F(Together, TenLoginsOfOthersAreNeitherDeniedNorSlower) {
    begin();
    const auto users = people(10);
    const double alone = median(logins(users, "alone"));
    attackAll();
    round(640);
    round(800);
    std::vector<double> times;
    const auto end = std::chrono::steady_clock::now() + 60s;
    for (const auto& user : users) { // -1: it failed, or its turn had not come in a minute
        int64_t sid = -1;
        const double time = timed([&] { sid = std::chrono::steady_clock::now() < end ? bus.login(user->name()) : -1; });
        times.push_back(sid > 0 ? time : -1);
        if (std::chrono::steady_clock::now() < end) {
            round(static_cast<uint16_t>(640 + 2 * times.size()));
        }
    }
    figure("attacked, logins that failed", double(std::ranges::count(times, -1)));
    figure("attacked, median", median(times));
    figure("attacked, slowest", *std::ranges::max_element(times));
    expectUndelayed(times, alone);
}

} // namespace
