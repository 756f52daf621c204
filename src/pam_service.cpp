// One PAM transaction of one user.
#include "pam_service.h"

#include "fork_guard.h"
#include "logger.h"

#include <cstdlib>
#include <cstring>

namespace Vard {

namespace {

bool carriable(const std::string& text) {
    return text.find('\0') == std::string::npos && text.size() < PAM_MAX_RESP_SIZE;
}

void logFailure(const char* func, const char* call, pam_handle_t* handle, int status) {
    Syslog::error("%s: %s failed, error: %s, code: %d", func, call, ::pam_strerror(handle, status), status);
}

} // namespace

PamService::PamService(std::string_view service, const std::string& login, const std::string& password)
    : login_(login), password_(password), conversation_{auth_conv, this} {
    if (!carriable(login) || !carriable(password)) {
        Syslog::error("%s: login or password cannot be passed to PAM", "PamService");
        throw pam_error("PamService");
    }
    status_ = ::pam_start(std::string(service).c_str(), login_.c_str(), &conversation_, &handle_);
    if (status_ != PAM_SUCCESS) {
        if (handle_ != nullptr) {
            logFailure("PamService", "pam_start", handle_, status_);
            ::pam_end(handle_, status_);
        }
        throw pam_error("PamService");
    }
}

// Runs on background threads; the modules take the locks of syslog and of the name service, which a supervisor that is
// forked meanwhile would need.
PamService::~PamService() {
    const ForkGuard guard;
    if (opened_) {
        ::pam_close_session(handle_, 0);
    }
    ::pam_setcred(handle_, PAM_DELETE_CRED);
    ::pam_end(handle_, status_);
}

// A prompt is answered through the i-th pointer of `responses`, as the modules in use expect, which ask one question
// per call. Only the first pointer is known to be ours to write: a longer list of questions is refused.
int PamService::auth_conv(int count, const pam_message** messages, pam_response** responses, void* data) {
    if (responses == nullptr || data == nullptr || messages == nullptr || count != 1) {
        return PAM_CONV_ERR;
    }
    if (*responses == nullptr) {
        *responses = static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
        if (*responses == nullptr) {
            return PAM_BUF_ERR;
        }
    }
    const auto* self = static_cast<const PamService*>(data);
    for (int i = 0; i < count; ++i) {
        const int style = messages[i]->msg_style;
        if (style != PAM_PROMPT_ECHO_ON && style != PAM_PROMPT_ECHO_OFF) {
            continue; // errors and information want no answer
        }
        responses[i]->resp = ::strdup(style == PAM_PROMPT_ECHO_ON ? self->login_.c_str() : self->getPassword().c_str());
        if (responses[i]->resp == nullptr) {
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

bool PamService::validateAccount() {
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
