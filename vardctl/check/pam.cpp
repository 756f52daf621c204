// The PAM service of the sessions.
#include "looks.h"
#include "service.h"
#include "settings_review.h"
#include "text.h"
#include "trust.h"

#include <pwd.h>
#include <security/pam_appl.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

constexpr int deepestInclude = 10;

/// One line of a service's file.
struct Rule {
    bool optional = false; ///< nothing is said when its module is missing
    std::string type;
    std::string control;
    std::string module; ///< or the file that is included
    fs::path list; ///< the file that the module is told to look at, if any
};

/// Reads a line; one without a module has none. A control in brackets has blanks.
Rule parseRule(const std::string& line) {
    std::istringstream words(line.substr(0, line.find('#')));
    Rule rule;
    words >> rule.type;
    if (rule.type == "@include") {
        rule.control = rule.type;
    } else {
        words >> rule.control;
        if (rule.control.starts_with('[') && !rule.control.ends_with(']')) {
            words.ignore(std::numeric_limits<std::streamsize>::max(), ']');
        }
    }
    words >> rule.module;
    constexpr std::string_view file = "file=";
    for (std::string argument; words >> argument;) {
        rule.list = argument.starts_with(file) ? fs::path(argument.substr(file.size())) : rule.list;
    }
    rule.optional = rule.type.starts_with('-');
    rule.type.erase(0, rule.optional ? 1 : 0);
    return rule;
}

/// All rules of a service, with those of the files that it includes.
class Stack {
public:
    Stack(const fs::path& name, const Findings& findings) : findings_(findings) { read(name, 0); }

    [[nodiscard]] const std::vector<Rule>& rules() const { return rules_; }
    [[nodiscard]] bool broken() const { return broken_; }

private:
    void read(const fs::path& name, int depth) {
        const auto file = Vard::pamServiceFile(name);
        if (const auto flaw = whoElseWrites(file); !flaw.empty()) {
            findings_.error(flaw, ownedByRoot);
        }
        std::ifstream lines(file);
        if (!lines || depth > deepestInclude) {
            broken_ = true;
            findings_.error("no service file " + file.string(), "install the package anew, or correct \"pam:service\"");
            return;
        }
        std::string whole;
        for (std::string line; std::getline(lines, line);) {
            whole += line;
            if (whole.ends_with('\\')) {
                whole.back() = ' ';
                continue;
            }
            add(parseRule(std::exchange(whole, {})), depth);
        }
    }

    void add(const Rule& rule, int depth) {
        if (rule.control == "@include" || rule.control == "include" || rule.control == "substack") {
            read(rule.module, depth + 1);
        } else if (!rule.module.empty()) {
            rules_.push_back(rule);
        }
    }

    const Findings& findings_;
    std::vector<Rule> rules_;
    bool broken_ = false;
};

/// Where modules lie, on this distribution and others.
std::vector<fs::path> moduleDirectories() {
    std::vector<fs::path> directories{"/usr/lib/security", "/usr/lib64/security", "/lib/security", "/lib64/security"};
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/usr/lib", ignored)) {
        directories.push_back(entry.path() / "security");
    }
    return directories;
}

bool moduleThere(const std::vector<fs::path>& directories, const fs::path& module) {
    return std::ranges::any_of(directories, [&](const fs::path& directory) {
        std::error_code ignored;
        return fs::exists(directory / module, ignored);
    });
}

void lookAtModules(const std::vector<Rule>& rules, const Findings& findings) {
    const auto directories = moduleDirectories();
    bool loginManager = false;
    for (const auto& rule : rules) {
        const bool there = moduleThere(directories, rule.module);
        loginManager = loginManager || (there && rule.type == "session" && rule.module == "pam_systemd.so");
        if (!there && !rule.optional) {
            findings.error("module missing: " + rule.module, "install its package, or take its line out");
        }
    }
    if (!loginManager) {
        findings.warning("sessions have no pam_systemd: users get no service manager of their own",
                         "apt install libpam-systemd, unless that is wanted");
    }
}

int refuseToTalk(int /*count*/, const pam_message** /*messages*/, pam_response** /*answers*/, void* /*data*/) {
    return PAM_CONV_ERR;
}

/// True when the service's account rules let the user in.
bool admits(const std::string& service, const char* user) {
    const pam_conv conversation{refuseToTalk, nullptr};
    pam_handle_t* pam = nullptr;
    if (::pam_start(service.c_str(), user, &conversation, &pam) != PAM_SUCCESS) {
        return false;
    }
    const int result = ::pam_acct_mgmt(pam, PAM_SILENT);
    ::pam_end(pam, result);
    return result == PAM_SUCCESS;
}

void tryAccounts(const std::string& service, const Findings& findings) {
    constexpr uid_t root = 0;
    constexpr uid_t daemon = 1;
    constexpr uid_t nobody = 65534;
    bool kept = true;
    for (const uid_t uid : {root, daemon, nobody}) {
        const auto* entry = ::getpwuid(uid);
        const std::string name = entry != nullptr ? entry->pw_name : "";
        if (!name.empty() && admits(service, name.c_str())) {
            kept = false;
            findings.error(
                "an account that no session should have is admitted: " + name,
                "put back the lines `account requisite pam_succeed_if.so quiet uid >= 1000' and `uid != 65534'");
        }
    }
    if (kept) {
        findings.ok(service + " keeps root and system accounts out");
    }
}

// The service writes the names of those who have a session; the rule before pam_nologin lets them in.
void lookAtList(const std::vector<Rule>& rules, const fs::path& runtime, const Findings& findings) {
    const auto kept = (runtime / "session_users").lexically_normal();
    for (const auto& rule : rules) {
        if (rule.type == "account" && rule.module == "pam_listfile.so" && rule.list.filename() == kept.filename() &&
            rule.list.lexically_normal() != kept) {
            findings.warning(
                "who has a session is looked for in " + rule.list.string() + ", not in " + kept.string(),
                "correct that line, or \"runtime:dir\": nobody finds his session while /etc/nologin is there");
        }
    }
}

// The module looks for either file.
void lookAtDrain(const std::vector<Rule>& rules, const Findings& findings) {
    const bool heeded = std::ranges::any_of(
        rules, [](const Rule& rule) { return rule.type == "account" && rule.module == "pam_nologin.so"; });
    if (!heeded) {
        findings.warning("the PAM service does not heed /etc/nologin: the machine cannot be drained",
                         "add `account requisite pam_nologin.so', as the installed file has it");
        return;
    }
    for (const std::string file : closingFiles) {
        if (fs::exists(file)) {
            findings.warning("draining: new sessions are kept out by " + file, "remove it when the work is done");
        }
    }
}

} // namespace

void lookAtPam(const Subject& subject, const Findings& findings) {
    // PAM takes the last part of the name, in small letters.
    const auto name = Vard::Utils::stringLower(subject.settings().setting(Vard::Settings::pamService));
    const auto service = fs::path(name).filename().string();
    const Stack stack(service, findings);
    if (stack.broken()) {
        return;
    }
    lookAtModules(stack.rules(), findings);
    tryAccounts(service, findings);
    lookAtDrain(stack.rules(), findings);
    lookAtList(stack.rules(), subject.settings().setting(Vard::Settings::runtimeDir), findings);
}

} // namespace Vardctl
