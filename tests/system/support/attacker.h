// What an ordinary account can do to its machine, and what others notice of it.
#pragma once

#include "service.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace Test {

/// Seconds that something took.
double timed(const std::function<void()>& action);

/// Asks for the service's status on a connection and a thread of its own, again and again, for as long as it lives.
class Bystander {
public:
    Bystander();
    ~Bystander();
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

    /// Seconds of the longest wait since the last look.
    double longest();

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> calls_{0};
    std::atomic<double> longest_{0};
    std::thread thread_;
};

/// Starts a shell command as that user, in the background; its process id. No single quotes.
int attackAs(const Account& account, const std::string& command);
/// Makes `path` in the user's home lead to a file system of his own whose server, a perl, reads and never answers.
void hangFiles(const Account& account, const std::string& path);

/// A machine with an account that attacks, mallory, and others that log in.
class AttackTest : public ServiceTest {
protected:
    AttackTest();
    ~AttackTest() override { shell("pkill -KILL -u mallory"); } // the end of the service need not wait for him

    /// Starts the service with tools and a session program that end well for everybody unless `own` names others.
    void startWith(std::map<std::string, Json::Value> own = {});
    /// A program that all users run: it does `body` for mallory and then `rest` for all; its path.
    static std::string program(const std::string& name, const std::string& body, const std::string& rest = "exit 0");
    /// Starts a shell command as mallory, in the background; its process id.
    int attack(const std::string& command) { return attackAs(mallory, command); }
    void hangFiles(const std::string& path) const { ::Test::hangFiles(mallory, path); }
    /// Holds the sockets of displays in the background: abstract or in the directory, listening or only bound.
    void squat(int first, int last, bool abstract, bool listening) const;
    /// Logs other people in one after the other and ends their sessions at once; the seconds of each, the middle one
    /// first.
    std::vector<double> logins();
    /// Expects that no login takes more than twice the middle one of those before, and a moment that load may cost.
    void expectUndelayed(const std::vector<double>& before);
    /// Seconds until no such process of a user's is left, or a limit far above all that is allowed.
    static double untilGone(const std::string& user, const std::string& text = {});
    /// Seconds until the session is no longer found, with the same limit.
    double untilEnded(int64_t sid);
    /// Stops the service with a limit and looks at what a new one finds; leaves the new one running.
    void expectRestart();

    Account mallory{"mallory"};
    std::vector<std::unique_ptr<Account>> people; ///< others who log in
};

} // namespace Test
