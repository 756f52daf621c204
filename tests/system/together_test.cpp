// All that one account can do, at once, while others log in.
#include "attacker.h"

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
        const auto first = bus.login("mallory", width, 480);
        bus.call("vardSessionRequest", "s", R"({"username":"mallory","password":"x","program":"Clock"})");
        if (first > 0) {
            bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(first));
        }
    }
};

TEST_F(Together, LoginsOfOthersAreNeitherDeniedNorSlower) {
    begin();
    const auto alone = logins();
    attackAll();
    for (uint16_t width = 640; width < 648; width = static_cast<uint16_t>(width + 2)) {
        round(width);
        round(static_cast<uint16_t>(width + 160));
        expectUndelayed(alone);
    }
}

} // namespace
