// Read-only access to a JSON object of flat keys.
#pragma once

#include <json/json.h>

#include <filesystem>
#include <list>
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
    JsonConfig() = default;
    /// `object` must be a JSON object.
    explicit JsonConfig(Json::Value object);
    virtual ~JsonConfig() = default;

    // A member in its type, or the default when it is absent. Throw jsoncpp's exception when it cannot be converted.
    std::string getString(std::string_view key, std::string_view defaultValue = {}) const;
    int getInteger(std::string_view key, int defaultValue = 0) const;
    double getDouble(std::string_view key, double defaultValue = 0) const;
    bool getBoolean(std::string_view key, bool defaultValue = false) const;

    /// The array's elements as strings, in order; empty when the member is absent or no array.
    std::list<std::string> getStringList(std::string_view key) const;
    std::vector<std::string> getVectorList(std::string_view key) const;

    /// True when the member is there, whatever its type.
    bool hasValue(std::string_view key) const;

    // For the service's own settings, where a broken value must not stop an operation: as above, but a member that
    // cannot be converted is logged at error level ("%s: bad value, key: %s") and the default is taken.
    std::string settingString(std::string_view key, std::string_view defaultValue = {}) const noexcept;
    int settingInteger(std::string_view key, int defaultValue) const noexcept;
    bool settingBoolean(std::string_view key, bool defaultValue) const noexcept;
    std::list<std::string> settingStringList(std::string_view key) const noexcept;

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
    explicit JsonConfigString(const std::string& text);
    ~JsonConfigString() override;
    JsonConfigString(const JsonConfigString&) = delete;
    JsonConfigString& operator=(const JsonConfigString&) = delete;
};

} // namespace Vard
