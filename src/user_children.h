// How long the service waits for the children that it starts for users, and whose children nothing ends.
#pragma once

#include "process_handle.h"
#include "timed_child.h"

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace Vard {

/// How long the children of each user may take, so that nobody holds up the others by letting his own hang or dawdle.
/// Usually each has the usual time. Once one had to be killed, or the slow ones took the usual time together in a
/// minute beyond what is quick, all of that user's together have only a short time, until one of the same name ends
/// quickly (another one that does shows nothing) or the disgrace is over. Any thread.
class Patience {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds usual{5000}; ///< each child, as a rule
    static constexpr std::chrono::milliseconds afterwards{500}; ///< all children of a user in disgrace together
    static constexpr std::chrono::seconds disgrace{60}; ///< from the last offence on

    /// What takes longer than `quick` is slow.
    explicit Patience(std::chrono::milliseconds quick) : quick_(quick) {}

    /// How long the user's next child may take; zero when it is not worth starting.
    [[nodiscard]] std::chrono::milliseconds left(uid_t user, Clock::time_point now = Clock::now());
    /// A child of the user's, or a question to his X server, has taken `took`, and had to be killed or given up or not.
    void took(uid_t user, const std::string& name, Clock::duration took, bool killed,
              Clock::time_point now = Clock::now());

private:
    struct Record {
        Clock::time_point since; // of the first slow one, or the last offence
        Clock::duration slow{}; // taken since then, beyond what is quick
        Clock::duration left = afterwards;
        std::set<std::string> offenders; // names; with one, the user is in disgrace
    };

    void forget(uid_t user, Clock::time_point now);

    const std::chrono::milliseconds quick_;
    std::mutex mutex_;
    std::map<uid_t, Record> users_;
};

/// Processes of users that not even SIGKILL has ended: the kernel holds them, usually in a file system of the user's
/// own. As long as a user has one, the service starts nothing more for him, which would only add another. Any thread.
class StuckProcesses {
public:
    /// Remembers one that was killed and is still there.
    void add(uid_t user, const ProcessHandle& process);
    /// The number of one that is still there; 0 when there is none.
    [[nodiscard]] pid_t of(uid_t user);
    /// Lets go of those that have ended after all.
    void forgetEnded();

private:
    std::mutex mutex_;
    std::multimap<uid_t, ProcessHandle> processes_;
};

/// What the service knows of the children of each user, for all his sessions together. Any thread.
struct UserChildren {
    /// For tools in his sessions, looks into his files, and questions to his X servers.
    Patience tools{std::chrono::milliseconds(250)};
    /// For what a session's start waits for: his home directory, his X server.
    Patience starts{std::chrono::milliseconds(1000)};
    /// Those that nothing ends.
    StuckProcesses stuck;

    /// How long the user's next child may take; zero, after a warning under `func`, when none is to be started.
    std::chrono::milliseconds grant(Patience& patience, uid_t user, const char* func);
    /// Remembers what a question to the user's X server has taken, however the scope is left.
    class Question {
    public:
        /// The question is asked now. `children` must outlive this object.
        Question(UserChildren& children, uid_t user) : children_(children), user_(user) {}
        Question(const Question&) = delete;
        Question& operator=(const Question&) = delete;
        /// The question is answered, or given up.
        ~Question() { children_.tools.took(user_, "X server", Patience::Clock::now() - begin_, false); }

    private:
        UserChildren& children_;
        uid_t user_;
        Patience::Clock::time_point begin_ = Patience::Clock::now();
    };
    /// Remembers how a child of the user's went that has been waited for under the name `func`.
    void remember(Patience& patience, uid_t user, const char* func, const TimedChild& child);
};

} // namespace Vard
