// Text that must not stay in memory.
#pragma once

#include <string>

namespace Vard {

/// Owns a secret text and overwrites it when it goes. All live secrets of the process are known, so that a forked child
/// that lives on can wipe those that are not its own. Any thread may make or destroy one; its text is guarded by its
/// owner.
class Secret {
public:
    Secret();
    explicit Secret(const std::string& text);
    ~Secret();
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    /// The text; valid until it is replaced or wiped.
    [[nodiscard]] const std::string& text() const { return text_; }
    /// Replaces the text; the argument is wiped.
    void take(std::string& text);
    /// Overwrites and empties the text.
    void wipe() noexcept;

    /// Makes forks wait for the list of secrets. Called before the guard that may hold them up longer is made, so that
    /// the list is taken last.
    static int prepareForks();
    /// Wipes every secret of the process. For a forked child; never blocks there.
    static void wipeAll() noexcept;

private:
    std::string text_;
};

} // namespace Vard
