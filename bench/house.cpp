// The machine that the door is measured on: the service with alice's session, the connector, and transports without it.
#include "house.h"

#include "transport.h"
#include "viewer.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace Bench {

using namespace Test;

namespace {

const std::string asConnector = "setpriv --reuid vard-connector --regid vard-connector --init-groups ";

void end(int pid, int signal) {
    ::kill(pid, signal);
    waitUntil([pid] { return ::kill(pid, 0) != 0; });
}

} // namespace

House::House() {
    mustRun(
        "install -d -o vard-connector /run/vard_connector; install -d -m 700 -o vard-connector "
        "/var/lib/vard_connector");
    constexpr const char* program = "/usr/local/bin/bench_session";
    writeFile(program,
              "#!/bin/sh\nxsetroot -solid '" + std::string(Screen::colour) + "'\nexec xclock -geometry 50x50+0+0\n",
              0755);
    std::string accounts;
    for (int i = 1; i < sessions; ++i) {
        const auto name = "bench" + std::to_string(i);
        accounts.append(name).append(":secret:::Test Person:/home/").append(name).append(":/bin/bash\n");
    }
    writeFile("/run/accounts", accounts, 0600);
    mustRun("newusers /run/accounts");
    service_.emplace(testConfig({{"session:path", program}, {"debug:level", "info"}, {"display:max", 33 + sessions}}));
    bus_.login("alice");
}

void House::logInTheOthers() {
    for (int i = 1; i < sessions; ++i) {
        if (bus_.login("bench" + std::to_string(i)) != 33 + i) {
            throw std::runtime_error("no session of number " + std::to_string(33 + i));
        }
    }
}

Connector::Connector(const std::string& options)
    : pid_(launch(asConnector + "/usr/libexec/vard/vard_connector " + options)) {
    if (!journal_.waitFor("listening on [::]:3389", "vard_connector")) {
        throw std::runtime_error("the connector does not listen");
    }
}

Connector::~Connector() { end(pid_, SIGTERM); }

void Connector::waitUntilOpen(size_t sessions) {
    if (!waitUntil([&] {
            return said(", connected: ") == said(", disconnected") &&
                   std::stoul(mustRun("ls /run/vard_connector | grep -c socket || true")) == sessions;
        })) {
        throw std::runtime_error("no transport waits");
    }
}

long Connector::memory(const std::string& field) const {
    std::ifstream rollup(file("smaps_rollup"));
    for (std::string line; std::getline(rollup, line);) {
        if (line.starts_with(field)) {
            return std::stol(line.substr(line.find(':') + 1));
        }
    }
    throw std::runtime_error("no " + field);
}

size_t Connector::count(const std::string& directory) const {
    return std::stoul(mustRun("ls " + file(directory) + " | wc -l"));
}

std::string Connector::state() const {
    return std::to_string(memory("Rss")) + " KiB resident, " + std::to_string(memory("Private_Dirty")) +
           " KiB its own, " + std::to_string(count("task")) + " thread, " + std::to_string(count("fd")) +
           " descriptors, " + std::to_string(processes("", "vard-connector").size() - 1) + " transports";
}

std::string Connector::file(const std::string& name) const { return "/proc/" + std::to_string(pid_) + "/" + name; }

OwnTransport::OwnTransport(const std::string& program) {
    const std::string hashLine = "/run/door.sam";
    const std::string output = "/run/door.log";
    mustRun("rm -f " + output + " && install -m 600 -o vard-connector /run/vard_connector/33-*.sam " + hashLine);
    const Doors::TransportSettings settings{program, "", 33, "/run/vard/xauth_33", hashLine, "/var/lib/vard_connector"};
    std::string command = "cd / && exec " + asConnector + "env -i";
    for (const auto& word : Doors::transportEnvironment(settings)) {
        command += " '" + word + "'";
    }
    for (const auto& word : Doors::transportArguments(settings)) {
        command += " '" + (word.starts_with("/ipc-socket:") ? "/port:" + std::to_string(port) : word) + "'";
    }
    pid_ = launch("sh -c \"" + command + " >" + output + " 2>&1\"");
    if (!waitUntil([&] { return readFile(output).find("Listening on ") != std::string::npos; })) {
        throw std::runtime_error("no transport on its own port: " + readFile(output));
    }
}

OwnTransport::~OwnTransport() { end(pid_, SIGKILL); }

} // namespace Bench
