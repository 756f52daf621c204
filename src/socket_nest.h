// Where an X server makes its socket while nobody else may reach it.
#pragma once

#include <filesystem>

namespace Vard {

/// A directory that an X server sees in the place of the sockets' usual one: what it makes there can be reached by root
/// alone, until it is put into its usual place in one step, over whatever a user has planted there. Goes with all that
/// is in it; the server keeps seeing it as long as it runs, so the object belongs to whoever waits for the server.
class SocketNest {
public:
    /// Makes the directory beside the usual place of `socket`; not valid when that cannot be done. Main thread.
    explicit SocketNest(std::filesystem::path socket);
    /// Removes the directory with all that is in it; what was published stays.
    ~SocketNest();
    SocketNest(const SocketNest&) = delete;
    SocketNest& operator=(const SocketNest&) = delete;

    /// False when the directory could not be made, which was logged.
    [[nodiscard]] bool valid() const { return !outer_.empty(); }
    /// What the server is to see as the directory usual().
    [[nodiscard]] std::filesystem::path directory() const { return outer_ / "d"; }
    /// The sockets' usual directory.
    [[nodiscard]] std::filesystem::path usual() const { return socket_.parent_path(); }
    /// Where the server's socket appears.
    [[nodiscard]] std::filesystem::path socket() const { return directory() / socket_.filename(); }
    /// Puts the socket into its usual place. Logs and answers false when something stands there that cannot be
    /// replaced.
    [[nodiscard]] bool publish() const;

    /// Removes the nests that an instance left which was killed, beside the usual place of `socket`.
    static void removeStale(const std::filesystem::path& socket);

private:
    std::filesystem::path socket_;
    std::filesystem::path outer_; // root's alone; empty when there is none
};

} // namespace Vard
