// What of a configuration does not do what it seems to say.
#include "settings_review.h"

#include "display_range.h"
#include "text.h"
#include "user_database.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

namespace Vard {

namespace {

constexpr size_t longestValue = 200; // in a line of the journal

std::string asJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    builder["commentStyle"] = "None"; // the reader keeps those before a value
    return bounded(Json::writeString(builder, value), longestValue);
}

// A key may be any text.
std::string harmless(const std::string& key) {
    std::string text = bounded(key, longestValue);
    std::ranges::replace_if(
        text, [](unsigned char byte) { return byte < ' ' || byte == '\x7F'; }, '?');
    return text;
}

Json::Value asArray(const std::list<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const auto& text : texts) {
        array.append(text);
    }
    return array;
}

bool isText(const Json::Value& value) { return value.isString(); }

/// What is there has the setting's type; a value that can be converted is taken all the same, but means something else.
struct HasType {
    const Json::Value& value;
    bool operator()(const TextSetting& /*setting*/) const { return isText(value); }
    bool operator()(const NumberSetting& /*setting*/) const { return value.isInt(); }
    bool operator()(const FlagSetting& /*setting*/) const { return value.isBool(); }
    bool operator()(const ListSetting& /*setting*/) const {
        return value.isArray() && std::ranges::all_of(value, isText);
    }
};

/// The value that the service takes.
struct InForce {
    const JsonConfig& settings;
    Json::Value operator()(const TextSetting& setting) const {
        return settings.converted(setting).value_or(setting.byDefault);
    }
    Json::Value operator()(const NumberSetting& setting) const {
        return settings.converted(setting).value_or(setting.byDefault);
    }
    Json::Value operator()(const FlagSetting& setting) const {
        return settings.converted(setting).value_or(setting.byDefault);
    }
    Json::Value operator()(const ListSetting& setting) const {
        return asArray(settings.converted(setting).value_or(std::list<std::string>{}));
    }
};

std::string_view keyOf(const Setting& setting) {
    return std::visit([](const auto& one) -> std::string_view { return one.key; }, setting);
}

/// True for a key with one mistake: a wrong, missing or superfluous character, or two that changed places.
bool isNearly(std::string_view key, std::string_view known) {
    const auto [left, right] = std::ranges::mismatch(key, known);
    const std::string_view typed(left, key.end());
    const std::string_view expected(right, known.end());
    const auto rest = [](std::string_view text, size_t from) { return text.substr(std::min(from, text.size())); };
    const bool exchanged =
        typed.size() > 1 && expected.size() > 1 && typed[0] == expected[1] && typed[1] == expected[0];
    return rest(typed, 1) == rest(expected, 1) || rest(typed, 1) == expected || typed == rest(expected, 1) ||
           (exchanged && rest(typed, 2) == rest(expected, 2));
}

// PAM takes the last part of a name, in small letters.
bool pamServiceExists(const std::string& name) {
    const auto last = std::filesystem::path(Utils::stringLower(name)).filename();
    std::error_code ignored;
    return !last.empty() && std::filesystem::exists(pamServiceFile(last), ignored);
}

/// The findings as they are made.
class Review {
public:
    explicit Review(const JsonConfig& settings) : settings_(settings) {}

    void members();
    void machine();
    void displays();
    std::vector<SettingFinding> take() { return std::move(findings_); }

private:
    void add(const char* problem, const std::string& key, const std::string& inForce, bool grave = false) {
        findings_.push_back({problem, harmless(key), asJson(settings_.object()[key]), inForce, grave});
    }
    [[nodiscard]] std::string inForce(const Setting& setting) const;
    template <typename Kind>
    auto value(const Kind& setting) const {
        return settings_.converted(setting).value_or(setting.byDefault);
    }

    const JsonConfig& settings_;
    std::vector<SettingFinding> findings_;
};

void Review::members() {
    for (const auto& key : settings_.object().getMemberNames()) {
        const auto* const known = std::ranges::find(allSettings, key, keyOf);
        if (known == allSettings.end()) {
            const auto* const meant = std::ranges::find_if(allSettings, [&](const Setting& one) {
                return !settings_.hasValue(keyOf(one)) && isNearly(key, keyOf(one));
            });
            add("unknown key", key,
                meant == allSettings.end() ? "nothing"
                                           : "nothing, and for " + std::string(keyOf(*meant)) + " its default");
        } else if (!std::visit(HasType{settings_.object()[key]}, *known)) {
            add("wrong type", key, inForce(*known));
        }
    }
}

// A range with an end that is no number is not taken over by a service that runs.
std::string Review::inForce(const Setting& setting) const {
    const bool display = keyOf(setting) == Settings::displayMin.key || keyOf(setting) == Settings::displayMax.key;
    const bool taken =
        !display || (settings_.converted(Settings::displayMin) && settings_.converted(Settings::displayMax));
    const auto value = asJson(std::visit(InForce{settings_}, setting));
    return taken ? value : value + " at the start, the range before after a change";
}

void Review::machine() {
    const std::string group = value(Settings::xauthGroup);
    if (group.empty()) {
        add("no group", Settings::xauthGroup.key, "the users' own groups: the connector reaches no session");
    } else if (Utils::getGroupGid(group) == unknownGid) {
        add("no such group", Settings::xauthGroup.key, "no group: no transport reaches a session", true);
    }
    if (!pamServiceExists(value(Settings::pamService))) {
        add("no such file in /etc/pam.d", Settings::pamService.key,
            "PAM's `other': root and system accounts may log in where it allows them", true);
    }
    if (value(Settings::connectAttempts) <= 0) {
        add("no attempt is left", Settings::connectAttempts.key, "every new session fails", true);
    }
    const std::string level = value(Settings::debugLevel);
    if (level != "debug" && level != "info" && level != "none") {
        add("no such level", Settings::debugLevel.key, "info at the start, the level before after a change");
    }
}

void Review::displays() {
    const long min = std::labs(value(Settings::displayMin));
    const long max = std::labs(value(Settings::displayMax));
    const char* const higher = min > max ? Settings::displayMin.key : Settings::displayMax.key;
    if (std::max(min, max) > long{lastDisplay} + 1) {
        add("beyond the last display", higher, "the default at the start, the range before after a change");
    } else if (min == max) {
        add("no display in the range", Settings::displayMax.key, "every new session fails", true);
    } else if (value(Settings::displayMin) > value(Settings::displayMax)) {
        add("display:min is above display:max", Settings::displayMin.key,
            std::to_string(std::min(min, max)) + " to " + std::to_string(std::max(min, max) - 1));
    }
}

} // namespace

std::filesystem::path pamServiceFile(const std::filesystem::path& name) {
    const auto own = "/etc/pam.d" / name;
    std::error_code ignored;
    return std::filesystem::exists(own, ignored) ? own : "/usr/lib/pam.d" / name;
}

std::string SettingFinding::text() const {
    return problem + ", key: " + key + ", found: " + found + ", in force: " + inForce;
}

std::vector<SettingFinding> reviewSettings(const JsonConfig& settings) {
    Review review(settings);
    review.members();
    review.machine();
    review.displays();
    return review.take();
}

} // namespace Vard
