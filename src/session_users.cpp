// The users who have a session, in a file for PAM's modules.
#include "session_users.h"

#include "file_descriptor.h"
#include "logger.h"
#include "small_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace Vard {

SessionUsers::SessionUsers(const std::filesystem::path& directory) : path_(directory / "session_users") {
    failed_ = !write({});
    if (failed_) {
        Utils::syslogErrno("SessionUsers", "write", errno);
    }
}

SessionUsers::~SessionUsers() { ::unlink(path_.c_str()); }

void SessionUsers::update(const std::set<std::string>& names) {
    if (!failed_ && names == written_) {
        return;
    }
    const bool failed = !write(names);
    if (failed && !failed_) {
        Utils::syslogErrno("SessionUsers", "write", errno);
    }
    failed_ = failed;
    written_ = names;
}

// A reader sees the file as it was or as it is.
bool SessionUsers::write(const std::set<std::string>& names) const {
    std::string text;
    for (const auto& name : names) {
        text += name + "\n";
    }
    const std::string fresh = path_.string() + ".new";
    const FileDescriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    const bool done = file && Utils::writeAll(file.get(), text) && ::rename(fresh.c_str(), path_.c_str()) == 0;
    if (!done) {
        const int code = errno;
        ::unlink(fresh.c_str());
        errno = code; // the caller's to tell
    }
    return done;
}

} // namespace Vard
