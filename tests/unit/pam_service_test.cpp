// PAM transactions with real modules and a real account.
#include "pam_service.h"

#include "scratch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <thread>

namespace {

using Vard::PamService;

class Pam : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        Scratch::run("useradd -m pamela && echo pamela:secret | chpasswd");
    }
    static void service(const std::string& stack) { std::ofstream("/etc/pam.d/unit-test") << stack; }
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

TEST_F(Pam, SessionIsClosedOnlyWhenItWasMarkedOpen) {
    Scratch::run(
        "printf '#!/bin/sh\\necho $PAM_TYPE >>/tmp/notes\\n' >/usr/local/bin/note; "
        "chmod +x /usr/local/bin/note");
    service("auth required pam_permit.so\nsession required pam_exec.so quiet /usr/local/bin/note\n");
    {
        const auto notOurs = transaction(); // another process closes what it opened
        ASSERT_TRUE(PamService::openSession(notOurs.getHandle()));
    }
    EXPECT_EQ(Scratch::run("cat /tmp/notes"), "open_session\n");
    transaction().setSessionOpened();
    EXPECT_EQ(Scratch::run("cat /tmp/notes"), "open_session\nclose_session\n");
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

// A module that runs a helper forks itself, which must not wait for its own transaction's end.
TEST_F(Pam, ForksOfOtherThreadsWaitForTheTransactionsEnd) {
    std::ofstream("/usr/local/bin/slow") << "#!/bin/sh\ntouch /tmp/closing; sleep 0.5; touch /tmp/closed\n";
    Scratch::run("chmod +x /usr/local/bin/slow");
    service("auth required pam_permit.so\nsession required pam_exec.so quiet type=close_session /usr/local/bin/slow\n");
    auto pam = std::make_unique<PamService>("unit-test", "pamela", "secret");
    pam->setSessionOpened();
    std::thread closing([&] { pam.reset(); });
    while (::access("/tmp/closing", F_OK) != 0) {
        std::this_thread::yield();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(::access("/tmp/closed", F_OK) == 0 ? 0 : 1);
    }
    closing.join();
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "forked in the middle";
}

} // namespace
