// A whole start of a session, from the request to the running program and its end, without a bus.
#include "session_start.h"

#include "scratch.h"
#include "session_watch.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

namespace {

using namespace Vard;

class SessionStarts : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        Scratch::run("useradd -m starter && mkdir -p -m 1777 /tmp/.X11-unix");
        allowAccount(true);
    }
    static void allowAccount(bool allowed) {
        const std::string module = allowed ? "pam_permit.so" : "pam_deny.so";
        std::ofstream("/etc/pam.d/unit-test") << "account required " << module << "\nsession required pam_permit.so\n";
    }
    // Whatever is left has to go before the tasks that wait for it.
    ~SessionStarts() override {
        table_.clear();
        children_.endAll("test");
    }

    // With the program running as the user: the supervisor cannot end it before.
    RequestHold start(const std::string& program) {
        auto held = starter_.start({"starter", "secret", {24, 800, 600}, program, {"1000"}});
        if (held) {
            const auto supervisor = std::to_string(table_.lock().state(*held).pid2.pid());
            Scratch::run("until pgrep -P " + supervisor + " -x sleep; do sleep 0.01; done");
        }
        return held;
    }
    std::shared_ptr<Session> nextEnded() {
        for (;;) { // a hang is the test's time-out
            if (auto events = takeEndedSessions(table_, children_, users_); !events.empty()) {
                return events.front().session;
            }
        }
    }
    [[nodiscard]] std::filesystem::path authority(uint32_t display) const {
        return scratch_.path() / ("xauth_" + std::to_string(display));
    }

    Scratch::Directory scratch_;
    UserChildren users_;
    BackgroundTasks tasks_;
    AuditLog audit_;
    SessionTable table_;
    ChildWaits children_;
    DisplayPool displays_;
    ProfileVolumes profiles_;
    Configuration config_{scratch_.write("config.json", R"({"display:min": 70, "display:max": 72,
        "xvfb:path": "/usr/bin/Xvfb", "xvfb:args": [":%{display}", "-screen", "0", "%{width}x%{height}x%{depth}",
        "-nolisten", "tcp", "-auth", "%{authfile}"], "pam:service": "unit-test", "xauth:group": ""})"),
                          table_, displays_};
    SessionStart starter_{
        {config_, table_, {displays_, users_, children_, tasks_}, profiles_, audit_, scratch_.path()}};
};

TEST_F(SessionStarts, ReachesTheProgramIsReusedAndEndsWithIt) {
    auto held = start("/bin/sleep");
    ASSERT_TRUE(held);
    const auto session = held.session();
    EXPECT_EQ(table_.findSession(session->sid), session);
    const auto state = [&]() -> const SessionState& { return table_.lock().state(*session); };
    EXPECT_TRUE(state().pid1.exists() && state().pid2.exists());
    EXPECT_EQ(session->xcb->getWindowGeometry(session->xcb->windowRoot()).width, 800);
    struct stat info {};
    ASSERT_EQ(::stat(authority(session->display).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0440U);
    EXPECT_EQ(info.st_uid, session->uid);
    EXPECT_EQ(start("/bin/sleep").session(), session) << "the same program is the same session";
    state().pid2.terminate();
    while (!state().pid2.endedBy(std::chrono::steady_clock::now() + std::chrono::seconds(1))) {
    }
    EXPECT_TRUE(takeEndedSessions(table_, children_, users_).empty()) << "a request still works on it";
    held.reset();
    EXPECT_EQ(nextEnded(), session);
    EXPECT_FALSE(table_.findSession(session->sid));
}

TEST_F(SessionStarts, TwoProgramsAreTwoSessionsAndTheHouseIsFull) {
    const auto first = start("/bin/sleep");
    const auto second = start("/usr/bin/sleep");
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->display, second->display);
    EXPECT_FALSE(start("/usr/bin/tail"));
}

TEST_F(SessionStarts, FailureLeavesNothing) {
    EXPECT_FALSE(start("/nonexistent"));
    allowAccount(false);
    EXPECT_FALSE(start("/bin/sleep"));
    allowAccount(true);
    std::filesystem::create_directory(authority(70));
    std::filesystem::create_directory(authority(70) / "full");
    EXPECT_THROW(start("/bin/sleep"), std::exception) << "no authority file can be written";
    EXPECT_FALSE(std::filesystem::exists("/tmp/.X11-unix/X70") || table_.findUserSession("starter"));
    std::filesystem::remove_all(authority(70));
    EXPECT_EQ(start("/bin/sleep")->display, 70U) << "the right to it went with the failures";
}

} // namespace
