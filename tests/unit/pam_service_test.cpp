// PAM transactions with real modules and a real account.
#include "pam_service.h"

#include "exceptions.h"
#include "scratch.h"

#include <array>
#include <cstdlib>

namespace {

using Vard::PamService;

class Pam : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        Scratch::run("useradd -m pamela && echo pamela:secret | chpasswd");
    }
    static void service(const std::string& stack) { Scratch::writeFile("/etc/pam.d/unit-test", stack); }
    static PamService transaction() { return PamService("unit-test", "pamela", "secret"); }
};

TEST_F(Pam, ExpiredPasswordIsChangedThroughTheSameConversation) {
    Scratch::run("chage -d 0 pamela");
    service("account required pam_unix.so\npassword required pam_permit.so\n");
    EXPECT_TRUE(transaction().validateAccount());
    service("account required pam_unix.so\npassword required pam_deny.so\n");
    EXPECT_FALSE(transaction().validateAccount());
    Scratch::run("chage -d 20000 pamela");
}

TEST_F(Pam, SeveralPromptsOfOneCallAreAnsweredEachInItsPlace) {
    const auto pam = transaction();
    const pam_conv* conversation = nullptr;
    ASSERT_EQ(::pam_get_item(pam.getHandle(), PAM_CONV, reinterpret_cast<const void**>(&conversation)), PAM_SUCCESS);
    const pam_message password{PAM_PROMPT_ECHO_OFF, "Password:"};
    const pam_message information{PAM_TEXT_INFO, "Welcome"};
    const pam_message name{PAM_PROMPT_ECHO_ON, "Login:"};
    std::array messages{&password, &information, &name};
    pam_response* answers = nullptr;
    ASSERT_EQ(conversation->conv(3, messages.data(), &answers, conversation->appdata_ptr), PAM_SUCCESS);
    EXPECT_STREQ(answers[0].resp, "secret");
    EXPECT_EQ(answers[1].resp, nullptr);
    EXPECT_STREQ(answers[2].resp, "pamela");
    for (int i = 0; i < 3; ++i) {
        std::free(answers[i].resp);
    }
    std::free(answers);
}

// What the credentials bring is there when the session is opened.
TEST_F(Pam, SessionIsOpenedWithCredentialsAndClosedOnlyWhenItWasMarkedOpen) {
    Scratch::writeFile("/usr/local/bin/pam-script", "#!/bin/sh\necho $PAM_TYPE $CREDENTIALS >>/tmp/notes\n", 0755);
    Scratch::writeFile("/etc/pam.credentials", "CREDENTIALS DEFAULT=set\n");
    service(
        "auth required pam_permit.so\nauth required pam_env.so readenv=0 conffile=/etc/pam.credentials\n"
        "session required pam_exec.so quiet /usr/local/bin/pam-script\n");
    {
        const auto notOurs = transaction(); // another process closes what it opened
        ASSERT_TRUE(PamService::openSession(notOurs.getHandle()));
    }
    EXPECT_EQ(Scratch::readFile("/tmp/notes"), "open_session set\n");
    transaction().setSessionOpened();
    // In a child of its own, which nobody waits for.
    EXPECT_TRUE(
        Scratch::waitUntil([] { return Scratch::readFile("/tmp/notes") == "open_session set\nclose_session\n"; }));
}

TEST_F(Pam, NameThatAModuleChangesIsRefused) {
    service("auth required pam_permit.so\naccount required pam_permit.so\n");
    auto pam = transaction();
    EXPECT_TRUE(pam.validateAccount() && pam.checkAuthenticate());
    ::pam_set_item(pam.getHandle(), PAM_USER, "root");
    EXPECT_FALSE(pam.validateAccount() || pam.checkAuthenticate());
}

TEST_F(Pam, WhatPamCannotCarryIsRefused) {
    EXPECT_THROW(PamService("unit-test", std::string("a\0b", 3), "x"), Vard::pam_error);
    EXPECT_THROW(PamService("unit-test", "pamela", std::string(65536, 'x')), Vard::pam_error);
}

} // namespace
