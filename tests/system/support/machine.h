// The throw-away machine that a system test runs on: commands, files, accounts.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace Test {

/// Throws anywhere but on a throw-away machine.
void requireSandbox();

/// Waits for a condition that nothing announces; false after a limit that only a hang reaches.
bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(60));

/// What a shell command wrote to standard output, and how it ended.
struct Output {
    std::string text;
    int status = -1; ///< exit code, or 128 plus the signal
};

/// Runs a shell command to its end.
Output shell(const std::string& command);
/// The same, which must succeed: throws std::runtime_error with the output otherwise.
std::string mustRun(const std::string& command);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text, unsigned mode = 0644);
bool exists(const std::string& path);

/// Starts a program beside the test; its process id. It is not the test's child, so nobody need reap it.
int launch(const std::string& command);
/// Process ids whose command line contains the text, zombies left out; of one user when `user` is given.
std::vector<int> processes(const std::string& text, const std::string& user = {});
/// Whether the text lies in the memory that a process has allocated.
bool inMemory(int pid, const std::string& text);
/// The children of a process, zombies included.
std::vector<int> childrenOf(int pid);

/// A user account with a password and a home directory; everything of it goes with the object, its processes too.
class Account {
public:
    explicit Account(std::string name, const std::string& password = "secret");
    ~Account();
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] std::string home() const { return "/home/" + name_; }
    [[nodiscard]] unsigned uid() const { return uid_; }
    /// An executable shell script in the home directory; its path.
    [[nodiscard]] std::string script(const std::string& file, const std::string& body) const;

private:
    std::string name_;
    unsigned uid_ = 0;
};

} // namespace Test
