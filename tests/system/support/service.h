// The service under test: its process, its configuration, its journal.
#pragma once

#include "bus.h"
#include "machine.h"

#include <gtest/gtest.h>
#include <json/json.h>
#include <systemd/sd-journal.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Test {

/// Journal entries from the object's making on.
class Journal {
public:
    Journal();
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// How many messages of the service, or of another program, contain the text.
    size_t count(const std::string& text, const std::string& program = "vard_service");
    bool has(const std::string& text) { return count(text) > 0; }
    /// Waits until a message contains the text.
    bool waitFor(const std::string& text, const std::string& program = "vard_service",
                 std::chrono::seconds limit = std::chrono::seconds(60));
    /// Waits for as many of the kernel's audit messages about a user; what they say from the operation on. The kernel
    /// has one audit log: the name must be one that no test on another machine knows.
    std::vector<std::string> audit(const std::string& user, size_t count);

private:
    using Entry = std::map<std::string, std::string>;

    std::vector<Entry> entries();

    sd_journal* journal_ = nullptr;
    std::chrono::microseconds start_{};
};

/// What a listener has heard, in order.
using Heard = std::vector<Signal>;

/// A configuration with settings of the test's own: the X server is the quick one without devices unless they say
/// otherwise.
Json::Value testConfig(const std::map<std::string, Json::Value>& own = {});

/// The service's process, started with a configuration of its own. Its end is a part of every test: at the latest with
/// the object it is told to end, and must do so in time, with status 0, its last word said and no sanitizer's
/// complaint.
class Service {
public:
    explicit Service(const Json::Value& config = testConfig(), bool waitForBus = true);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    [[nodiscard]] int pid() const { return pid_; }
    /// Replaces the configuration file, with a modification time of its own.
    void rewrite(const std::string& text);
    /// Sends SIGTERM and waits for the orderly end.
    void stop();
    /// Waits for the orderly end that somebody else has asked for.
    void wait();
    /// The one end that need not be orderly, with all that it orphans.
    void kill();
    [[nodiscard]] bool running() const;

    /// As installed, where every user may execute it.
    static constexpr const char* program = "/usr/bin/vard_service";
    static constexpr const char* configFile = "/tmp/vard_test.json";

private:
    int reap();

    Journal journal_;
    int pid_ = -1;
    int64_t stamp_ = 0;
};

/// A machine with the account alice, a bus client and the journal; the service is started by the test.
class ServiceTest : public testing::Test {
protected:
    ServiceTest();
    ~ServiceTest() override;

    void start(const Json::Value& config = testConfig()) { service = std::make_unique<Service>(config); }
    /// Changes the configuration until the service has logged `logged` about it (or that it was taken over).
    bool reload(const std::string& text, const std::string& logged);
    bool reload(const Json::Value& config);
    /// The session's JSON object.
    Json::Value info(int64_t sid);
    /// Expects that no session, server, file or mount is left, and that the service still answers.
    void expectNothingLeft();

    Account alice{"alice"};
    Journal journal;
    Bus bus;
    std::unique_ptr<Service> service;
};

} // namespace Test
