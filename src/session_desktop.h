// Preparing a session's desktop from outside: small tools run as the user, the screen's size, the windows' size.
#pragma once

#include "json_config.h"
#include "session.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Vard {

// Each of these runs as the user and waits as long as the service has patience with him; a tool that fails is logged
// under the operation's name, and the session goes on. Nothing happens for a null session. Main thread, but for
// the size, which background tasks set too.

/// Tells the user's session bus and service manager the session's variables.
void waitSessionDBus(const Session* session);
/// Loads the keymap that transports reckon with.
void waitSessionFixSetxkbmapEvdev(const Session* session);
/// Loads the X resources of all sessions.
void waitSessionLoadX11Resources(const Session* session);
/// Gives the screen the size, in pixels, that serves a request best. False when its server does not answer.
bool waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height,
                               const JsonConfig& settings);
/// All of them, for a session whose program is about to start.
void prepareDesktop(const Session& session, unsigned short width, unsigned short height, const JsonConfig& settings);

/// Fits the windows of a session to the screen, in the background, for as long as its program may still open them.
void sessionCorrectMainWindowSize(const std::shared_ptr<Session>& session);

/// The address of a session bus in the first file of `directory` that is for the display; empty when none has one. For
/// a process that is the user. Throws std::filesystem::filesystem_error when the directory cannot be read.
std::string readSessionDBusAddress(const std::filesystem::path& directory, uint32_t display);
/// The same for a session, looked up as its user in at most about three seconds; valid UTF-8, empty after logging a
/// failure.
std::string sessionBusAddress(const Session& session);

} // namespace Vard
