// PAM transactions with real modules and a real account.
#include "pam_service.h"
#include "scratch.h"

#include <algorithm>
#include <fstream>

namespace {

using Vard::PamService;

class Pam : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        Scratch::run("useradd -m pamela && echo pamela:secret | chpasswd");
    }
    static void service(const std::string& stack) { std::ofstream("/etc/pam.d/unit-test") << stack; }
    static PamService transaction(const std::string& password) { return PamService("unit-test", "pamela", password); }
};

TEST_F(Pam, PromptsAreAnsweredWithNameAndPassword) {
    service("auth required pam_echo.so hello\nauth required pam_unix.so nodelay\naccount required pam_unix.so\n");
    EXPECT_TRUE(transaction("secret").checkAuthenticate());
    EXPECT_FALSE(transaction("wrong").checkAuthenticate());
    EXPECT_FALSE(transaction("").checkAuthenticate());
    EXPECT_TRUE(transaction("").validateAccount());
}

TEST_F(Pam, ExpiredPasswordIsChangedThroughTheSameConversation) {
    Scratch::run("chage -d 0 pamela");
    service("account required pam_unix.so\npassword required pam_permit.so\n");
    EXPECT_TRUE(transaction("secret").validateAccount());
    service("account required pam_unix.so\npassword required pam_deny.so\n");
    EXPECT_FALSE(transaction("secret").validateAccount());
    Scratch::run("chage -d 20000 pamela");
}

TEST_F(Pam, SessionIsClosedOnlyWhenItWasMarkedOpen) {
    std::ofstream("/usr/local/bin/note") << "#!/bin/sh\necho $PAM_TYPE >> /tmp/notes\n";
    Scratch::run("chmod +x /usr/local/bin/note; touch /tmp/notes");
    service(
        "auth required pam_permit.so\nsession required pam_exec.so quiet /usr/local/bin/note\n"
        "session required pam_env.so conffile=/etc/unit-env\n");
    std::ofstream("/etc/unit-env") << "FROM_PAM DEFAULT=yes\n";
    { const auto unopened = transaction("secret"); }
    EXPECT_EQ(Scratch::run("cat /tmp/notes"), "");
    {
        auto pam = transaction("secret");
        ASSERT_TRUE(PamService::openSession(pam.getHandle()));
        pam.setSessionOpened();
        const auto environment = pam.getEnvironments();
        EXPECT_NE(std::ranges::find(environment, "FROM_PAM=yes"), environment.end());
    }
    EXPECT_EQ(Scratch::run("cat /tmp/notes"), "open_session\nclose_session\n");
    EXPECT_FALSE(PamService::openSession(nullptr));
}

TEST_F(Pam, WhatPamCannotCarryIsRefused) {
    EXPECT_THROW(PamService("unit-test", std::string("a\0b", 3), "x"), Vard::pam_error);
    EXPECT_THROW(PamService("unit-test", "pamela", std::string(65536, 'x')), Vard::pam_error);
}

TEST_F(Pam, SecretsOfAllTransactionsCanBeWiped) {
    const PamService first("unit-test", "pamela", "one");
    const PamService second("unit-test", "pamela", "two");
    Vard::Secret::wipeAll();
    EXPECT_EQ(first.getPassword() + second.getPassword(), "");
}

} // namespace
