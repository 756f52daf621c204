// A password, from the terminal or from a pipe to the bus and nowhere else.
#pragma once

#include <array>
#include <string>

namespace Vardctl {

/// The first line of standard input. On a terminal it is asked for, without echo. Wiped when the object goes.
class Password {
public:
    /// Reads it; `user` is named in the question. Throws Failure when there is none, an empty one, or none that the bus
    /// can carry.
    explicit Password(const std::string& user);
    /// Wipes it.
    ~Password();
    Password(const Password&) = delete;
    Password& operator=(const Password&) = delete;

    /// The password, ended by a NUL; valid as long as the object lives.
    [[nodiscard]] const char* text() const { return text_.data(); }

private:
    void ask(const std::string& user);
    bool readLine();

    std::array<char, 1025> text_{}; // a fixed place, so that no copy is left behind by growing
};

} // namespace Vardctl
