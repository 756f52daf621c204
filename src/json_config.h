// Read-only access to a JSON object of flat keys.
#pragma once

#include "settings.h"

#include <json/json.h>

#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vard {

/// Parses a JSON file (at most 16 MiB, 64 levels deep). Logs and throws vard_error("readJson") when it cannot be
/// opened; a syntax error propagates as jsoncpp's exception.
Json::Value readJson(const std::filesystem::path& path);

/// A JSON object of flat keys; a key may itself contain colons. Immutable, so one object may be read by any thread.
/// A present member that cannot be converted to the asked type raises Json::LogicError.
class JsonConfig {
public:
    /// An empty object.
    JsonConfig() = default;
    /// `object` must be a JSON object.
    explicit JsonConfig(Json::Value object);
    /// What is derived may have texts to wipe.
    virtual ~JsonConfig() = default;

    /// The member as text, or the default when it is absent. Throws jsoncpp's exception when it cannot be converted, as
    /// the next three do.
    std::string getString(std::string_view key, std::string_view defaultValue = {}) const;
    /// The same as a whole number.
    int getInteger(std::string_view key, int defaultValue = 0) const;
    /// The same as a floating-point number. Required; nobody here calls it.
    double getDouble(std::string_view key, double defaultValue = 0) const;
    /// The same as a truth value.
    bool getBoolean(std::string_view key, bool defaultValue = false) const;

    /// The array's elements as strings, in order; empty when the member is absent or no array. Throws jsoncpp's
    /// exception when an element cannot be converted.
    std::list<std::string> getStringList(std::string_view key) const;
    /// The same in a vector. Required; nobody here calls it.
    std::vector<std::string> getVectorList(std::string_view key) const;

    /// True when the member is there, whatever its type.
    bool hasValue(std::string_view key) const;

    /// The setting for the service's own use, where a broken value must not stop an operation: one that cannot be
    /// converted is logged at error level ("%s: bad value, key: %s") and the default is taken.
    std::string setting(const TextSetting& setting) const noexcept;
    int setting(const NumberSetting& setting) const noexcept;
    bool setting(const FlagSetting& setting) const noexcept;
    std::list<std::string> setting(const ListSetting& setting) const noexcept;

    /// The same; nothing when it cannot be converted, which is not logged.
    std::optional<std::string> converted(const TextSetting& setting) const noexcept;
    std::optional<int> converted(const NumberSetting& setting) const noexcept;
    std::optional<bool> converted(const FlagSetting& setting) const noexcept;
    std::optional<std::list<std::string>> converted(const ListSetting& setting) const noexcept;

    /// All of it.
    [[nodiscard]] const Json::Value& object() const { return object_; }

protected:
    Json::Value object_ = Json::Value(Json::objectValue);

private:
    const Json::Value* find(std::string_view key) const;
};

/// A JsonConfig parsed from JSON text, a client's request. Throws jsoncpp's exception on a syntax error; logs and
/// throws vard_error("JsonConfigString") when the text is no JSON object. Its texts, a password may be among them, are
/// wiped when it goes.
class JsonConfigString : public JsonConfig {
public:
    /// Parses the text, which stays the caller's to wipe.
    explicit JsonConfigString(const std::string& text);
    /// Wipes the texts.
    ~JsonConfigString() override;
    JsonConfigString(const JsonConfigString&) = delete;
    JsonConfigString& operator=(const JsonConfigString&) = delete;
};

} // namespace Vard
