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
/// Prints a figure of an attack, so that two builds can be compared.
void figure(const std::string& what, double value);
/// The same for one that is to be at most `limit`.
void expectAtMost(const std::string& what, double value, double limit);

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

    /// Starts the service with tools and a session program that end well for everybody unless `own` names others.
    void startWith(std::map<std::string, Json::Value> own = {});
    /// A program that all users run: it does `body` for mallory and then `rest` for all; its path.
    static std::string program(const std::string& name, const std::string& body, const std::string& rest = "exit 0");
    /// Starts a shell command as mallory, in the background; its process id.
    int attack(const std::string& command) { return attackAs(mallory, command); }
    void hangFiles(const std::string& path) const { ::Test::hangFiles(mallory, path); }
    /// Holds the sockets of displays in the background: abstract or in the directory, listening or only bound.
    void squat(int first, int last, bool abstract, bool listening) const;
    /// Logs users in one after the other and shuts their sessions down at once; the seconds of each. -1: it failed.
    std::vector<double> logins(const std::vector<std::unique_ptr<Account>>& users, const char* what);
    /// Expects that none failed and none took more than twice `alone`, and a moment that other machines' load may cost.
    static void expectUndelayed(const std::vector<double>& times, double alone);
    /// Accounts that log in.
    static std::vector<std::unique_ptr<Account>> people(int count);
    /// Waits until nothing of a user's is left; seconds, at most `limit`.
    static double untilGone(const std::string& user, std::chrono::seconds limit, const std::string& text = {});
    /// Waits until the session is no longer found; seconds, at most `limit`.
    double untilEnded(uint32_t sid, std::chrono::seconds limit);
    /// Stops the service with a limit and looks at what a new one finds; leaves the new one running.
    void expectRestart();

    Account mallory{"mallory"};
};

/// The middle one.
double median(std::vector<double> values);

} // namespace Test
