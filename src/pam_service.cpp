// One PAM transaction of one user.
#include "pam_service.h"

#include "child_descriptors.h"
#include "exceptions.h"
#include "fork_guard.h"
#include "logger.h"
#include "own_children.h"
#include "process_child.h"

#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace Vard {

namespace {

bool carriable(const std::string& text) {
    return text.find('\0') == std::string::npos && text.size() < PAM_MAX_RESP_SIZE;
}

/// While modules run: what they start is their own, and other threads' forks wait for the locks that they take. In this
/// order: a fork that waits for the guard holds what the other needs for a moment.
struct ModuleCall {
    ForeignForks forks;
    ForkGuard guard;
};

void logFailure(const char* func, const char* call, pam_handle_t* handle, int status) {
    Syslog::error("%s: %s failed, error: %s, code: %d", func, call, ::pam_strerror(handle, status), status);
}

// Errors and information want none.
bool wantsAnswer(const pam_message& message) {
    return message.msg_style == PAM_PROMPT_ECHO_ON || message.msg_style == PAM_PROMPT_ECHO_OFF;
}

// Wipes and frees the first `count` answers, a password among them.
void dropAnswers(const pam_message** messages, pam_response* responses, int count) {
    for (int i = 0; i < count; ++i) {
        if (wantsAnswer(*messages[i])) {
            Utils::wipe(responses[i].resp, std::strlen(responses[i].resp));
            std::free(std::exchange(responses[i].resp, nullptr));
        }
    }
}

} // namespace

PamService::PamService(std::string_view service, const std::string& login, const std::string& password)
    : login_(login), password_(password), conversation_{auth_conv, this} {
    if (!carriable(login) || !carriable(password)) {
        Syslog::error("%s: login or password cannot be passed to PAM", "PamService");
        throw pam_error("PamService");
    }
    const ModuleCall call;
    status_ = ::pam_start(std::string(service).c_str(), login_.c_str(), &conversation_, &handle_);
    if (status_ != PAM_SUCCESS) {
        if (handle_ != nullptr) {
            logFailure("PamService", "pam_start", handle_, status_);
            ::pam_end(handle_, status_);
        }
        throw pam_error("PamService");
    }
}

PamService::~PamService() {
    if (opened_ && closeInChild()) {
        const ForkGuard guard;
        ::pam_end(handle_, status_ | PAM_DATA_SILENT); // ours is only a copy now, as pam_end is told
    } else {
        const ModuleCall call;
        close();
    }
}

void PamService::close() const noexcept {
    if (opened_) {
        ::pam_close_session(handle_, 0);
    }
    ::pam_setcred(handle_, PAM_DELETE_CRED);
    ::pam_end(handle_, status_);
}

// False when no child can be had. The child lets go of the service first: a module may run or hang for long.
bool PamService::closeInChild() const noexcept {
    Utils::rememberJournalSocket();
    const pid_t pid = OwnChildren::fork();
    if (pid == 0) {
        Syslog::syslogChildOpen();
        Utils::resetChildSignals();
        ::setsid();
        ::closelog(); // before its descriptor is closed and given to somebody else
        Utils::closeInheritedDescriptors();
        ::prctl(PR_SET_DUMPABLE, 0);
        Secret::wipeAll();
        close();
        ::_exit(EXIT_SUCCESS);
    }
    if (pid > 0) {
        OwnChildren::release(pid, closingLimit);
    }
    return pid > 0;
}

// Each prompt has its place in the array that *responses points to. A module never sees a part of the answers.
int PamService::auth_conv(int count, const pam_message** messages, pam_response** responses, void* data) {
    if (responses == nullptr || data == nullptr || messages == nullptr || count < 1 || count > PAM_MAX_NUM_MSG) {
        return PAM_CONV_ERR;
    }
    // What a module left in the pointer is none of ours to write to.
    *responses = static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    if (*responses == nullptr) {
        return PAM_BUF_ERR;
    }
    const auto* self = static_cast<const PamService*>(data);
    for (int i = 0; i < count; ++i) {
        if (!wantsAnswer(*messages[i])) {
            continue;
        }
        const bool shown = messages[i]->msg_style == PAM_PROMPT_ECHO_ON;
        (*responses)[i].resp = ::strdup(shown ? self->login_.c_str() : self->getPassword().c_str());
        if ((*responses)[i].resp == nullptr) {
            dropAnswers(messages, *responses, i);
            std::free(std::exchange(*responses, nullptr));
            return PAM_BUF_ERR;
        }
    }
    return PAM_SUCCESS;
}

// A module may map the name to another user's; a session under that one was not asked for.
bool PamService::sameUser(const char* func) {
    const void* user = nullptr;
    if (::pam_get_item(handle_, PAM_USER, &user) == PAM_SUCCESS && user != nullptr &&
        login_ == static_cast<const char*>(user)) {
        return true;
    }
    Syslog::error("%s: user name changed by PAM, refused: %s", func, login_.c_str());
    return false;
}

void PamService::nameRequester() {
    const ModuleCall call;
    status_ = ::pam_set_item(handle_, PAM_RUSER, login_.c_str());
}

bool PamService::validateAccount() {
    const ModuleCall call;
    status_ = ::pam_acct_mgmt(handle_, 0);
    if (status_ == PAM_NEW_AUTHTOK_REQD) {
        status_ = ::pam_chauthtok(handle_, PAM_CHANGE_EXPIRED_AUTHTOK);
        if (status_ != PAM_SUCCESS) {
            logFailure("validateAccount", "pam_chauthtok", handle_, status_);
            return false;
        }
    }
    if (status_ != PAM_SUCCESS) {
        logFailure("validateAccount", "pam_acct_mgmt", handle_, status_);
        return false;
    }
    return sameUser("validateAccount");
}

bool PamService::checkAuthenticate() {
    const ModuleCall call;
    status_ = ::pam_authenticate(handle_, 0);
    if (status_ != PAM_SUCCESS) {
        logFailure("checkAuthenticate", "pam_authenticate", handle_, status_);
        return false;
    }
    return sameUser("checkAuthenticate");
}

bool PamService::openSession(pam_handle* handle) {
    if (handle == nullptr) {
        return false;
    }
    int status = ::pam_setcred(handle, PAM_ESTABLISH_CRED);
    if (status != PAM_SUCCESS) {
        logFailure("openSession", "pam_setcred", handle, status);
        return false;
    }
    status = ::pam_open_session(handle, 0);
    if (status != PAM_SUCCESS) {
        logFailure("openSession", "pam_open_session", handle, status);
        return false;
    }
    return true;
}

std::list<std::string> PamService::getEnvironments() const {
    std::list<std::string> result;
    char** list = ::pam_getenvlist(handle_);
    for (char** entry = list; entry != nullptr && *entry != nullptr; ++entry) {
        result.emplace_back(*entry);
        std::free(*entry);
    }
    std::free(list);
    return result;
}

} // namespace Vard
