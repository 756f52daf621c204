// The service under test: its process, its configuration, its journal.
#include "service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace Test {

Journal::Journal() {
    start_ = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()).time_since_epoch();
    // Asked for its descriptor, the library watches for new files: the journal may be rotated in the middle of a test.
    if (sd_journal_open(&journal_, 0) < 0 || sd_journal_get_fd(journal_) < 0) {
        throw std::runtime_error("no journal: run the test in scripts/sandbox");
    }
}

Journal::~Journal() { sd_journal_close(journal_); }

std::vector<Journal::Entry> Journal::entries() {
    sd_journal_process(journal_);
    sd_journal_seek_realtime_usec(journal_, static_cast<uint64_t>(start_.count()));
    std::vector<Entry> result;
    while (sd_journal_next(journal_) > 0) {
        Entry& entry = result.emplace_back();
        const void* data = nullptr;
        size_t size = 0;
        SD_JOURNAL_FOREACH_DATA(journal_, data, size) {
            const std::string field(static_cast<const char*>(data), size);
            entry[field.substr(0, field.find('='))] = field.substr(field.find('=') + 1);
        }
    }
    return result;
}

size_t Journal::count(const std::string& text, const std::string& program) {
    auto all = entries();
    return static_cast<size_t>(std::ranges::count_if(all, [&](auto& entry) {
        return entry["SYSLOG_IDENTIFIER"] == program && entry["MESSAGE"].find(text) != std::string::npos;
    }));
}

bool Journal::waitFor(const std::string& text, const std::string& program, std::chrono::seconds limit) {
    return waitUntil([&] { return count(text, program) > 0; }, limit);
}

std::vector<std::string> Journal::audit(const std::string& user, size_t count) {
    std::vector<std::string> records;
    waitUntil([&] {
        records.clear();
        for (auto& entry : entries()) {
            const auto& text = entry["MESSAGE"];
            if (const auto found = text.find("VARD:"); entry["_TRANSPORT"] == "audit" && found != std::string::npos &&
                                                       text.find("=\"" + user + "\"") != std::string::npos) {
                records.push_back(text.substr(found, text.rfind('\'') - found));
            }
        }
        return records.size() >= count;
    });
    return records;
}

Json::Value testConfig(const std::map<std::string, Json::Value>& own) {
    Json::Value config(Json::objectValue);
    config["xvfb:path"] = "/usr/bin/Xvfb";
    for (const char* word :
         {":%{display}", "-screen", "0", "%{width}x%{height}x%{depth}", "-auth", "%{authfile}", "-nolisten", "tcp"}) {
        config["xvfb:args"].append(word);
    }
    config["debug:level"] = "debug";
    for (const auto& [key, value] : own) {
        config[key] = value;
    }
    return config;
}

namespace {

constexpr std::chrono::seconds endLimit{40};

// Reports of the service and of its children, whose outputs go elsewhere.
void collectReports() {
    for (const char* options : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char* given = std::getenv(options);
        ::setenv(options, (std::string(given != nullptr ? given : "") + ":log_path=/tmp/sanitizer").c_str(), 1);
    }
}

} // namespace

Service::Service(const Json::Value& config, bool waitForBus) {
    rewrite(config.toStyledString());
    pid_ = ::fork();
    if (pid_ == 0) {
        collectReports();
        ::execl(program, program, "--config", configFile, nullptr);
        ::_exit(127);
    }
    Bus bus;
    if (waitForBus && !waitUntil([&] { return bus.owned() && bus.call("vardStatus").ok(); })) {
        throw std::runtime_error("the service does not answer");
    }
}

Service::~Service() {
    if (pid_ > 0) {
        EXPECT_TRUE(running()) << "nobody has told the service to end";
        stop();
    }
}

void Service::rewrite(const std::string& text) {
    writeFile(configFile, text);
    // Whole seconds count: each new content gets a time of its own.
    fs::last_write_time(configFile, fs::file_time_type::clock::now() + std::chrono::seconds(++stamp_));
}

void Service::stop() {
    ::kill(pid_, SIGTERM);
    wait();
}

void Service::wait() {
    if (!waitUntil([this] { return !running(); }, endLimit)) {
        ADD_FAILURE() << "the service does not end";
        ::kill(pid_, SIGKILL);
    }
    EXPECT_EQ(reap(), 0) << "the wait status of the service";
    EXPECT_TRUE(journal_.waitFor("start: shutdown complete", "vard_service", std::chrono::seconds(5)));
    EXPECT_EQ(shell("cat /tmp/sanitizer.* 2>/dev/null").text, "");
}

void Service::kill() {
    ::kill(pid_, SIGKILL);
    reap();
}

int Service::reap() {
    int status = -1;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return status;
}

bool Service::running() const {
    siginfo_t info{};
    return pid_ > 0 && ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

// Only now are the users of the test before gone, with what their servers' own children still wrote.
ServiceTest::ServiceTest() {
    shell("rm -rf /run/vard /tmp/.X*-lock /tmp/.X11-unix/* /tmp/server-*.xkm /tmp/sanitizer.*");
}

ServiceTest::~ServiceTest() = default;

// The service's first look at the file, seconds after its start, only records the time: changed once more, it is
// noticed.
bool ServiceTest::reload(const std::string& text, const std::string& logged) {
    const auto before = journal.count(logged);
    auto changeAgain = std::chrono::steady_clock::now();
    return waitUntil([&] {
        if (std::chrono::steady_clock::now() >= changeAgain) {
            service->rewrite(text);
            changeAgain += std::chrono::seconds(5);
        }
        return journal.count(logged) > before;
    });
}

bool ServiceTest::reload(const Json::Value& config) {
    return reload(config.toStyledString(), "reloadConfigWatcher: success");
}

Json::Value ServiceTest::info(int64_t sid) {
    Json::Value value;
    std::istringstream(bus.session(static_cast<uint32_t>(sid))) >> value;
    return value;
}

void ServiceTest::expectNothingLeft() {
    EXPECT_TRUE(waitUntil([&] { return childrenOf(service->pid()).empty(); })) << shell("ps axf").text;
    EXPECT_TRUE(waitUntil([&] { return shell("ls -A /run/vard").text == "session_users\nvard_service.pid\n"; }))
        << shell("ls -A /run/vard").text;
    EXPECT_TRUE(waitUntil([&] { return shell("ls -A /tmp/.X11-unix").text.empty(); }));
    EXPECT_EQ(shell("grep ' /home/' /proc/mounts").text, "");
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

} // namespace Test
