// The machine that the door is measured on: the service with alice's session, the connector, and transports without it.
#pragma once

#include "service.h"

#include <optional>
#include <string>

namespace Bench {

/// The service, and alice's session, number 33, which shows one colour. More users have accounts.
class House {
public:
    static constexpr int sessions = 200; ///< so many there can be

    House();
    /// Starts the sessions of the others, 34 and so on.
    void logInTheOthers();

private:
    Test::Account alice_{"alice"};
    Test::Bus bus_;
    std::optional<Test::Service> service_;
};

/// The connector at work, as its unit starts it but for what the options say.
class Connector {
public:
    explicit Connector(const std::string& options = "");
    ~Connector();
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// Waits until so many sessions have a transport that waits for its client.
    void waitUntilOpen(size_t sessions = 1);
    /// How many of its lines in the journal contain the text.
    [[nodiscard]] size_t said(const char* text) { return journal_.count(text, "vard_connector"); }
    /// A line of its smaps_rollup, in KiB.
    [[nodiscard]] long memory(const std::string& field) const;
    /// How many entries a directory of it in /proc has: "fd", "task".
    [[nodiscard]] size_t count(const std::string& directory) const;
    /// All of that in words.
    [[nodiscard]] std::string state() const;

private:
    [[nodiscard]] std::string file(const std::string& name) const;

    Test::Journal journal_;
    int pid_ = 0;
};

/// A transport of alice's session on a port of its own, started as the connector starts its own. The connector must
/// have one, too.
class OwnTransport {
public:
    static constexpr uint16_t port = 4000;

    explicit OwnTransport(const std::string& program = "/usr/bin/freerdp-shadow-cli");
    ~OwnTransport();
    OwnTransport(const OwnTransport&) = delete;
    OwnTransport& operator=(const OwnTransport&) = delete;

private:
    int pid_;
};

} // namespace Bench
