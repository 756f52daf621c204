// A user who logs in and out all the time.
#pragma once

#include "bus.h"
#include "machine.h"

#include <json/json.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>

namespace Soak {

struct World;

/// An account with a thread that logs in, looks after its session for a moment, ends it, and begins again. A session
/// that goes while nobody asked for it is lost.
class User {
public:
    User(World& world, const std::string& name, unsigned seed);
    ~User();
    User(const User&) = delete;
    User& operator=(const User&) = delete;

    [[nodiscard]] const Test::Account& account() const { return account_; }
    /// True when there is no session, not even one on its way out.
    [[nodiscard]] bool quiet() const { return quiet_; }

    /// While somebody has the lock, the thread does nothing; all below is called with it.
    [[nodiscard]] std::unique_lock<std::mutex> hold() { return std::unique_lock(mutex_); }
    /// Logs in, with a screen size of its own each time; false when it was refused.
    bool login();
    /// Waits for the end of a session that is on its way out, and logs in when there is none then. Throws when that is
    /// refused again and again.
    void begin();
    /// The session's JSON object, after begin().
    Json::Value session();
    /// The session is told to end.
    void giveUp();
    /// The session is over, or about to be, without being told: its number may be another's any moment.
    void lose();
    /// Calls a method with the session's id first.
    template <typename... Args>
    void call(const char* method, const std::string& types, Args... args) {
        bus().call(method, ("u" + types).c_str(), static_cast<uint32_t>(session_->sid), args...);
    }

private:
    struct Session {
        int64_t sid = 0;
        int generation = 0;
        bool mayGo = false; ///< begun while the machine was short of something
        bool dying = false;
        std::chrono::steady_clock::time_point end;
    };

    void run();
    void step();
    [[nodiscard]] Test::Reply ask();
    [[nodiscard]] bool isMine(const Test::Reply& reply) const;
    void look();
    Test::Bus& bus();
    int pick(int low, int high) { return std::uniform_int_distribution(low, high)(random_); }

    World& world_;
    Test::Account account_;
    std::mt19937 random_;
    std::unique_ptr<Test::Bus> bus_;
    std::optional<Session> session_;
    std::atomic<bool> quiet_ = true;
    std::atomic<bool> ending_ = false;
    std::mutex mutex_;
    std::thread thread_;
};

} // namespace Soak
