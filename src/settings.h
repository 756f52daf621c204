// What the configuration file may say: every key with its type and its default.
#pragma once

#include <array>
#include <variant>

namespace Vard {

/// A key whose value is a text.
struct TextSetting {
    const char* key;
    const char* byDefault;
};

/// A key whose value is a whole number.
struct NumberSetting {
    const char* key;
    int byDefault;
};

/// A key whose value is true or false.
struct FlagSetting {
    const char* key;
    bool byDefault;
};

/// A key whose value is an array of texts, by default empty.
struct ListSetting {
    const char* key;
};

/// The keys; docs/vard_service.json.5 tells what they mean.
namespace Settings {

inline constexpr TextSetting debugLevel{"debug:level", "info"};
inline constexpr NumberSetting displayMin{"display:min", 33};
inline constexpr NumberSetting displayMax{"display:max", 55};
inline constexpr TextSetting runtimeDir{"runtime:dir", "/run/vard"};
inline constexpr TextSetting runtimeXdg{"runtime:xdg", "/run/user/%{uid}"};
inline constexpr TextSetting serverPath{"xvfb:path", "/usr/bin/Xorg"};
inline constexpr ListSetting serverArgs{"xvfb:args"};
inline constexpr TextSetting serverSocket{"xvfb:sock", "/tmp/.X11-unix/X%{display}"};
inline constexpr FlagSetting serverIsolated{"xvfb:netns", true};
inline constexpr TextSetting xauthGroup{"xauth:group", "vard-xauth"};
inline constexpr NumberSetting connectAttempts{"xcon:attempts:count", 5};
inline constexpr TextSetting programFile{"session:programs", "/etc/vard/programs.json"};
inline constexpr TextSetting sessionPath{"session:path", "/usr/bin/xterm"};
inline constexpr ListSetting sessionArgs{"session:args"};
inline constexpr TextSetting pamService{"pam:service", "vard"};
inline constexpr FlagSetting profileEnabled{"pvol:enable", false};
inline constexpr TextSetting profileType{"pvol:fstype", "ext4"};
inline constexpr TextSetting profileOption{"pvol:option", ""};
inline constexpr TextSetting noticeProgram{"helper:notification", "/usr/libexec/vard/vard_notify"};
inline constexpr TextSetting hashTool{"hash:path", "/usr/bin/winpr-hash"};
inline constexpr TextSetting sizeTool{"xrandr:path", "/usr/bin/xrandr"};
inline constexpr NumberSetting seamlessTimeout{"seamless:timeout", 60}; // seconds

} // namespace Settings

/// Any of them.
using Setting = std::variant<TextSetting, NumberSetting, FlagSetting, ListSetting>;

/// All of them: what is not here is no key.
inline constexpr std::array<Setting, 22> allSettings{
    Settings::debugLevel,     Settings::displayMin,     Settings::displayMax,      Settings::runtimeDir,
    Settings::runtimeXdg,     Settings::serverPath,     Settings::serverArgs,      Settings::serverSocket,
    Settings::serverIsolated, Settings::xauthGroup,     Settings::connectAttempts, Settings::programFile,
    Settings::sessionPath,    Settings::sessionArgs,    Settings::pamService,      Settings::profileEnabled,
    Settings::profileType,    Settings::profileOption,  Settings::noticeProgram,   Settings::hashTool,
    Settings::sizeTool,       Settings::seamlessTimeout};

} // namespace Vard
