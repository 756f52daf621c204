// JSON objects written by hand: the order of their members and their quoting are part of the interface.
#pragma once

#include "text.h"

#include <sstream>
#include <string>

namespace Vard {

/// Writes one JSON object without spaces, members in the order of the calls. Any thread, one at a time.
class ObjectWriter {
public:
    /// A string member, quoted: only quotation marks and backslashes are escaped.
    void text(const char* key, const std::string& value) { begin(key) << Utils::stringQuoted(value); }
    /// The bare word true or false.
    void flag(const char* key, bool value) { begin(key) << (value ? "true" : "false"); }
    /// A number in decimal.
    template <typename Number>
    void number(const char* key, Number value) {
        begin(key) << value;
    }
    /// The object's text.
    [[nodiscard]] std::string finish() const { return "{" + out_.str() + "}"; }

private:
    std::ostream& begin(const char* key) {
        out_ << (first_ ? "" : ",") << '"' << key << "\":";
        first_ = false;
        return out_;
    }

    std::ostringstream out_;
    bool first_ = true;
};

/// True when a text that callers or users can inflate still fits into a bus message once it is made valid.
bool fitsMessage(const std::string& text);

/// Writes a JSON array of objects that users can inflate: what would make it too large for a bus message is left out.
/// Any thread, one at a time.
class ArrayWriter {
public:
    /// Appends an object; false, and nothing appended, when the array would become too large.
    bool append(const std::string& object);
    /// The array's text.
    [[nodiscard]] std::string finish() const { return "[" + text_ + "]"; }

private:
    std::string text_;
};

} // namespace Vard
