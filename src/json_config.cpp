// Read-only access to a JSON object of flat keys.
#include "json_config.h"

#include "exceptions.h"
#include "file_descriptor.h"
#include "logger.h"
#include "secret.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace Vard {

namespace {

constexpr size_t largestFile = 16 << 20;
constexpr int deepestNesting = 64; // the reader recurses

// Never waits: a fifo in the file's place must not hold the service up.
FileDescriptor openRegular(const std::filesystem::path& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        static_cast<size_t>(info.st_size) > largestFile) {
        return {};
    }
    return file;
}

bool readAll(int fd, std::string& text) {
    std::array<char, 16384> block{};
    for (;;) {
        const ssize_t count = ::read(fd, block.data(), block.size());
        if (count == 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.append(block.data(), count > 0 ? static_cast<size_t>(count) : 0);
        if (text.size() > largestFile) {
            return false;
        }
    }
}

Json::CharReaderBuilder limitedReader() {
    Json::CharReaderBuilder builder;
    builder["stackLimit"] = deepestNesting;
    return builder;
}

// The reader itself throws for nothing else than the nesting.
bool parseLimited(const std::string& text, Json::Value& value, std::string& errors) {
    const std::unique_ptr<Json::CharReader> reader(limitedReader().newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, &errors);
    } catch (const Json::RuntimeError&) {
        errors = "JSON nested deeper than " + std::to_string(deepestNesting) + " levels";
        return false;
    }
}

// The library hands its texts out as constants only; their memory is the value's own.
void wipeTexts(Json::Value& value) noexcept {
    if (value.isString()) {
        const char* begin = nullptr;
        const char* end = nullptr;
        value.getString(&begin, &end);
        Utils::wipe(const_cast<char*>(begin), static_cast<size_t>(end - begin)); // NOLINT(*-const-cast)
    } else if (value.isArray() || value.isObject()) {
        std::ranges::for_each(value, wipeTexts);
    }
}

Json::Value parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    if (!parseLimited(text, value, errors)) {
        wipeTexts(value);
        throw Json::RuntimeError(errors);
    }
    return value;
}

// Nothing when the value cannot be converted.
template <typename Read>
auto unlessBroken(Read read) noexcept -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// A broken value of the configuration must not stop an operation.
template <typename Result>
Result orDefault(const char* key, std::optional<Result> value, Result byDefault) noexcept {
    if (!value) {
        Syslog::error("%s: bad value, key: %s", "JsonConfig", key);
    }
    return std::move(value).value_or(std::move(byDefault));
}

} // namespace

Json::Value readJson(const std::filesystem::path& path) {
    Syslog::info("%s: file: %s", "readJson", path.c_str());
    const FileDescriptor file = openRegular(path);
    std::string text;
    if (!file || !readAll(file.get(), text)) {
        Syslog::error("%s: open failed, path: %s", "readJson", path.c_str());
        throw vard_error("readJson");
    }
    return parse(text);
}

JsonConfig::JsonConfig(Json::Value object) : object_(std::move(object)) {}

const Json::Value* JsonConfig::find(std::string_view key) const {
    return object_.find(key.data(), key.data() + key.size());
}

std::string JsonConfig::getString(std::string_view key, std::string_view defaultValue) const {
    const auto* value = find(key);
    return value != nullptr ? value->asString() : std::string(defaultValue);
}

int JsonConfig::getInteger(std::string_view key, int defaultValue) const {
    const auto* value = find(key);
    return value != nullptr ? value->asInt() : defaultValue;
}

double JsonConfig::getDouble(std::string_view key, double defaultValue) const {
    const auto* value = find(key);
    return value != nullptr ? value->asDouble() : defaultValue;
}

bool JsonConfig::getBoolean(std::string_view key, bool defaultValue) const {
    const auto* value = find(key);
    return value != nullptr ? value->asBool() : defaultValue;
}

std::list<std::string> JsonConfig::getStringList(std::string_view key) const {
    std::list<std::string> result;
    const auto* value = find(key);
    if (value != nullptr && value->isArray()) {
        for (const auto& element : *value) {
            result.push_back(element.asString());
        }
    }
    return result;
}

std::vector<std::string> JsonConfig::getVectorList(std::string_view key) const {
    const auto list = getStringList(key);
    return {list.begin(), list.end()};
}

bool JsonConfig::hasValue(std::string_view key) const { return find(key) != nullptr; }

std::optional<std::string> JsonConfig::converted(const TextSetting& setting) const noexcept {
    return unlessBroken([&] { return getString(setting.key, setting.byDefault); });
}

std::optional<int> JsonConfig::converted(const NumberSetting& setting) const noexcept {
    return unlessBroken([&] { return getInteger(setting.key, setting.byDefault); });
}

std::optional<bool> JsonConfig::converted(const FlagSetting& setting) const noexcept {
    return unlessBroken([&] { return getBoolean(setting.key, setting.byDefault); });
}

std::optional<std::list<std::string>> JsonConfig::converted(const ListSetting& setting) const noexcept {
    return unlessBroken([&] { return getStringList(setting.key); });
}

std::string JsonConfig::setting(const TextSetting& setting) const noexcept {
    return orDefault<std::string>(setting.key, converted(setting), setting.byDefault);
}

int JsonConfig::setting(const NumberSetting& setting) const noexcept {
    return orDefault(setting.key, converted(setting), setting.byDefault);
}

bool JsonConfig::setting(const FlagSetting& setting) const noexcept {
    return orDefault(setting.key, converted(setting), setting.byDefault);
}

std::list<std::string> JsonConfig::setting(const ListSetting& setting) const noexcept {
    return orDefault(setting.key, converted(setting), {});
}

JsonConfigString::JsonConfigString(const std::string& text) {
    object_ = parse(text);
    if (!object_.isObject()) {
        wipeTexts(object_);
        Syslog::error("%s: config failed, not json object: `%s'", "JsonConfigString", text.c_str());
        throw vard_error("JsonConfigString");
    }
}

JsonConfigString::~JsonConfigString() { wipeTexts(object_); }

} // namespace Vard
