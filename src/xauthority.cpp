// X authority files.
#include "xauthority.h"

#include "exceptions.h"
#include "file_descriptor.h"
#include "logger.h"
#include "small_file.h"
#include "user_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string_view>

namespace Vard {

namespace {

constexpr std::string_view cookieName = "MIT-MAGIC-COOKIE-1";
constexpr mode_t fileMode = 0440;

void appendBE16(std::vector<uint8_t>& out, size_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8 & 0xFF));
    out.push_back(static_cast<uint8_t>(value & 0xFF));
}

template <typename Bytes>
void appendField(std::vector<uint8_t>& out, const Bytes& bytes) {
    appendBE16(out, bytes.size());
    out.insert(out.end(), bytes.begin(), bytes.end());
}

// A new file that nobody else can open before it is finished. The umask is everybody's: it is changed for one call
// only.
FileDescriptor createPrivate(const std::filesystem::path& path) {
    const mode_t before = ::umask(077);
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    ::umask(before);
    return file;
}

// An unknown group leaves the file to root's, never to the user's own group, which many may share: the cookie is
// readable for the group. Unknown ids are all ones, which fchown takes for "as it is".
void handOver(int fd, const std::string& user, const std::string& group) {
    const UserInfo owner = Utils::getUserInfo(user);
    const gid_t gid = group.empty() ? owner.gid : Utils::getGroupGid(group);
    if (::fchown(fd, owner.uid, gid) != 0) {
        Utils::syslogErrno("createXauthFile", "fchown", errno);
    }
}

} // namespace

std::string Utils::getHostname() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::vector<uint8_t> xauthorityRecord(const std::string& host, unsigned display, const std::vector<uint8_t>& cookie) {
    std::vector<uint8_t> record{0x01, 0x00}; // the family of local displays
    appendField(record, host);
    appendField(record, std::to_string(display));
    appendField(record, cookieName);
    appendField(record, cookie);
    return record;
}

XAuthorityFile::XAuthorityFile(std::filesystem::path path, const std::vector<uint8_t>& record, const std::string& user,
                               const std::string& group) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    const FileDescriptor file = createPrivate(path);
    if (!file || !Utils::writeAll(file.get(), {reinterpret_cast<const char*>(record.data()), record.size()})) {
        const int code = errno;
        Syslog::error("%s: create xauthfile failed, path: %s", "createXauthFile", path.c_str());
        Utils::syslogErrno("createXauthFile", "write", code);
        if (file) {
            std::filesystem::remove(path, ignored);
        }
        throw vard_error("createXauthFile");
    }
    path_ = std::move(path);
    ::fchmod(file.get(), fileMode);
    handOver(file.get(), user, group);
}

XAuthorityFile& XAuthorityFile::operator=(XAuthorityFile&& other) noexcept {
    if (this != &other) {
        remove();
        path_ = std::exchange(other.path_, {});
    }
    return *this;
}

void XAuthorityFile::remove() noexcept {
    std::error_code ignored;
    if (!path_.empty()) {
        std::filesystem::remove(std::exchange(path_, {}), ignored);
    }
}

} // namespace Vard
