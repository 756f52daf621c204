// What must not stay in memory, and its wiping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace Vard {

namespace Utils {

/// Overwrites memory, in a way the compiler keeps.
void wipe(void* memory, size_t size) noexcept;
/// Overwrites the text's memory and empties it.
void wipe(std::string& text) noexcept;
/// The same for bytes, and for every text of a list.
void wipe(std::vector<uint8_t>& bytes) noexcept;
void wipe(std::list<std::string>& texts) noexcept;

/// Wipes a value that somebody else owns, however the scope is left.
template <typename Value>
class WipeGuard {
public:
    explicit WipeGuard(Value& value) : value_(value) {}
    WipeGuard(const WipeGuard&) = delete;
    WipeGuard& operator=(const WipeGuard&) = delete;
    ~WipeGuard() { wipe(value_); }

private:
    Value& value_;
};

/// Wipes a text that somebody else made for one call, such as the bus library for a method's, and hands over as a
/// constant; his variable is none.
class PasswordGuard : WipeGuard<std::string> {
public:
    explicit PasswordGuard(const std::string& password) : WipeGuard(const_cast<std::string&>(password)) {} // NOLINT
};

} // namespace Utils

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
