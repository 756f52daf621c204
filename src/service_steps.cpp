// The steps of a session's life under the names that the journal knows them by: each is one call on the room that does
// it. A start goes through the rooms by itself; here they are for one session at a time.
#include "dbus_service.h"
#include "hash_tool.h"
#include "session_desktop.h"

namespace Vard {

DBusService::SessionPtr DBusService::startSession(Text user, Text password, const unsigned char& depth,
                                                  const unsigned short& width, const unsigned short& height,
                                                  Text sessionPath, const std::list<std::string>& sessionArgs) {
    return startSession(StartRequest{user, password, {depth, width, height}, sessionPath, sessionArgs});
}

std::pair<XAuthorityFile, std::vector<uint8_t>> DBusService::createXauthFile(unsigned display, Text user) {
    return Vard::createXauthFile(directory_.path(), display, user, *config_.settings());
}

pid_t DBusService::runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height,
                                  Text user, const std::filesystem::path& authfile) {
    return Vard::runXvfbDisplay(display, {depth, width, height}, user, authfile, *config_.settings(),
                                displays_.isolated());
}

ProcessHandle DBusService::saveWaitPidBackground(pid_t pid) { return children_.watch(tasks_, pid); }

void DBusService::sessionMountProfile(Session* session) {
    Vard::sessionMountProfile(session, profiles_, *config_.settings());
}

void DBusService::waitSessionDBus(const Session* session) { Vard::waitSessionDBus(session); }

bool DBusService::waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height) {
    return Vard::waitSessionGeometryUpdate(session, width, height, *config_.settings());
}

void DBusService::waitSessionFixSetxkbmapEvdev(const Session* session) { Vard::waitSessionFixSetxkbmapEvdev(session); }

void DBusService::waitSessionLoadX11Resources(const Session* session) { Vard::waitSessionLoadX11Resources(session); }

void DBusService::sessionCorrectMainWindowSize(const SessionPtr& session) {
    Vard::sessionCorrectMainWindowSize(session);
}

std::string DBusService::readSessionDBusAddress(Text directory, uint32_t display) {
    return Vard::readSessionDBusAddress(directory, display);
}

bool DBusService::vardCreateNTLMhashFile(const SessionPtr& session, Text password, bool ntlmv2) {
    return createHashLine(table_, *session, password, ntlmv2, *config_.settings());
}

void DBusService::auditUserMessage(const unsigned& display, const char* address, int type, std::string_view operation,
                                   std::string_view user, bool result) {
    audit_.write(display, address, type, operation, user, result);
}

} // namespace Vard
