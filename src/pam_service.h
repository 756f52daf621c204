// One PAM transaction of one user.
#pragma once

#include "secret.h"

#include <security/pam_appl.h>

#include <chrono>
#include <list>
#include <string>
#include <string_view>

namespace Vard {

/// A PAM transaction that answers the modules' prompts with the name and password it was given. The password is wiped
/// when the object goes. One thread at a time; every failure is logged with PAM's own text.
class PamService {
public:
    /// Starts the transaction. Logs and throws pam_error("PamService") when that fails, also for a name or password
    /// that PAM could not carry (an embedded NUL, 512 bytes and more).
    PamService(std::string_view service, const std::string& login, const std::string& password);
    /// Closes the session if it was marked open, deletes the credentials, ends the transaction. An open session ends in
    /// a child of its own that nobody waits for, since its modules may take their time; it has closingLimit.
    ~PamService();
    PamService(const PamService&) = delete;
    PamService& operator=(const PamService&) = delete;

    /// What the modules have for a session's end.
    static constexpr std::chrono::seconds closingLimit{10};

    /// The name that was given.
    [[nodiscard]] const std::string& getLogin() const { return login_; }
    /// The password that was given; valid as long as the object lives.
    [[nodiscard]] const std::string& getPassword() const { return password_.text(); }

    /// Tells the modules that the user himself asks (PAM_RUSER), so that rules can tell a check of his password from
    /// the start of a session.
    void nameRequester();
    /// Account check; an expired password is changed through the same conversation. False also when the modules changed
    /// the user's name meanwhile.
    bool validateAccount();
    /// Password check. False also when the modules changed the user's name meanwhile.
    bool checkAuthenticate();
    /// Establishes credentials and opens the PAM session; false for a null handle.
    static bool openSession(pam_handle* handle);
    /// Makes destruction close the PAM session.
    void setSessionOpened() { opened_ = true; }

    /// The transaction's handle, which stays this object's.
    [[nodiscard]] pam_handle* getHandle() const { return handle_; }
    /// The PAM environment, as NAME=value in PAM's order.
    [[nodiscard]] std::list<std::string> getEnvironments() const;

private:
    static int auth_conv(int count, const pam_message** messages, pam_response** responses, void* data);
    bool sameUser(const char* func);
    [[nodiscard]] bool closeInChild() const noexcept;
    void close() const noexcept;

    pam_handle_t* handle_ = nullptr;
    std::string login_;
    Secret password_;
    pam_conv conversation_;
    int status_ = PAM_SUCCESS;
    bool opened_ = false;
};

} // namespace Vard
