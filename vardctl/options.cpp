// The command line: what each subcommand takes, and its help.
#include "options.h"

#include "build_version.h"
#include "commands.h"
#include "failure.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace Vardctl {

namespace {

constexpr const char* exitCodes = R"(Exit codes: 0 done, 1 refused or no such session, 2 wrong usage,
3 the service is not running, 4 access denied.
See `vardctl SUBCOMMAND --help' for examples, and vardctl(1).)";

constexpr const char* passwordNote =
    "The password is asked for on the terminal, or read from standard input's first line.\n"
    "It is checked, as the account is; with --no-check the account alone: the password that is given is then the one\n"
    "that the session's clients need, right or wrong.\n";

/// Builds the subcommands; what is said to them goes to one invocation.
class CommandLine {
public:
    CommandLine(CLI::App& app, Invocation& invocation) : app_(app), invocation_(invocation) {}

    void addQueries();
    void addStarts();
    void addChanges();
    void addServiceCommands();

private:
    CLI::App& add(const char* name, const char* about, Command command, const std::string& notes);
    void addJson(CLI::App& command) { command.add_flag("--json", options().json, "Print JSON"); }
    void addLegend(CLI::App& command) {
        command.add_flag("--no-legend", options().noLegend, "Print no line with the columns' names");
    }
    void addSession(CLI::App& command) { addNumber(command, "ID", options().session, 0, "", "Session id")->required(); }
    void addUser(CLI::App& command) {
        addWord(command, "USER", "User name", [this](const std::string& word) { options().target = userName(word); });
    }
    void addSessionOrUser(CLI::App& command);
    void addSize(CLI::App& command);
    void addNoCheck(CLI::App& command) {
        command.add_flag("--no-check", options().noCheck, "Do not check the password");
    }
    void addText(CLI::App& command, const char* name, std::string& value, const char* kind, const char* about) {
        command.add_option(name, value, about)->type_name(kind);
    }
    /// A decimal number from `least` to the greatest of its type.
    template <typename Number>
    CLI::Option* addNumber(CLI::App& command, const char* name, Number& value, uint32_t least, const char* kind,
                           const char* about);
    /// A word that stands in one place; `take` may refuse it with a Failure.
    static void addWord(CLI::App& command, const char* name, const char* about,
                        const std::function<void(const std::string&)>& take) {
        command.add_option_function(name, take, about)->required()->type_name("");
    }
    Options& options() { return invocation_.options; }

    CLI::App& app_;
    Invocation& invocation_;
};

// The library alone takes 010 for eight. What is wider than 32 bits here is an optional number of 32.
template <typename Number>
CLI::Option* CommandLine::addNumber(CLI::App& command, const char* name, Number& value, uint32_t least,
                                    const char* kind, const char* about) {
    const uint32_t greatest = sizeof(Number) < sizeof least ? (1U << 8 * sizeof(Number)) - 1 : UINT32_MAX;
    const auto refuse = [=](const std::string& word) {
        const auto read = decimal(word);
        return read && *read >= least && *read <= greatest
                   ? ""
                   : "a number from " + std::to_string(least) + " to " + std::to_string(greatest) +
                         " is needed, not `" + word + "'";
    };
    return command.add_option(name, value, about)->check(refuse)->type_name(kind);
}

CLI::App& CommandLine::add(const char* name, const char* about, Command command, const std::string& notes) {
    auto* added = app_.add_subcommand(name, about);
    added->footer(notes);
    added->callback([this, command, name] {
        invocation_.command = command;
        invocation_.name = name;
    });
    return *added;
}

void CommandLine::addSessionOrUser(CLI::App& command) {
    command.add_option("ID|USER", options().target, "Session id, or user name if it is no number")
        ->required()
        ->type_name("");
    command.add_flag("--user", options().forceUser, "Take a number for a user name");
}

void CommandLine::addSize(CLI::App& command) {
    addNumber(command, "--width", options().size.width, 1, "W",
              "Screen width in pixels, of a new session 1280 if not given");
    addNumber(command, "--height", options().size.height, 1, "H",
              "Screen height in pixels, of a new session 1024 if not given");
}

void CommandLine::addQueries() {
    auto& list = add("list", "List the sessions", listSessions, "Example:\n  vardctl list --json | jq '.[].user'");
    addJson(list);
    addLegend(list);
    auto& show = add("show", "Show what is known of a session, or of all sessions of a user", showSessions,
                     "Examples:\n  vardctl show 33\n  vardctl show alice --json\n  vardctl show --user 1234");
    addSessionOrUser(show);
    addJson(show);
    show.add_flag("--secrets", options().secrets, "Show the hash of the password, too");
    auto& processes =
        add("processes", "List the processes of a session's user", listProcesses, "Example:\n  vardctl processes 33");
    addSession(processes);
    addJson(processes);
    addLegend(processes);
    addJson(add("programs", "List the published programs", listPrograms, "Example:\n  vardctl programs"));
    auto& address =
        add("address", "Print the address of a user's session bus", showAddress,
            "Known only of a desktop that writes it to ~/.dbus/session-bus, as dbus-launch does.\nExample, as the\n"
            "user:\n  DBUS_SESSION_BUS_ADDRESS=$(sudo vardctl address alice) busctl --user list");
    addUser(address);
    addJson(address);
    addJson(add("status", "Show version, load and number of sessions", showStatus, "Example:\n  vardctl status"));
    addJson(add("watch", "Print the service's signals as they come, until interrupted", watch,
                "It stays when the service goes, and says when it is back.\nExample:\n  vardctl watch --json"));
}

void CommandLine::addStarts() {
    auto& start = add("login", "Start or find a user's desktop session, and print its id", login,
                      std::string(passwordNote) +
                          "Examples:\n  vardctl login alice --width 1920 --height 1080\n  vardctl login alice <file");
    addUser(start);
    addText(start, "--domain", options().domain, "D", "Domain of the user");
    addSize(start);
    addNumber(start, "--depth", options().depth, 1, "N", "Colour depth, 24 if not given");
    addNoCheck(start);
    addJson(start);
    auto& run = add("run", "Start a session with a published program, and print its id", runProgram,
                    std::string(passwordNote) + "Example:\n  vardctl run alice 'Text Editor'");
    addUser(run);
    run.add_option("PROGRAM", options().program, "Name of the program, as `vardctl programs' prints it")
        ->required()
        ->type_name("");
    addText(run, "--domain", options().domain, "D", "Domain of the user");
    addSize(run);
    addNoCheck(run);
    addJson(run);
}

void CommandLine::addChanges() {
    auto& send = add("notify", "Show a message to a session's user", notify,
                     "Examples:\n  vardctl notify 33 'The server restarts at noon' --header Maintenance\n"
                     "  vardctl notify 33 -- '--text that begins with dashes'");
    addSession(send);
    send.add_option("MESSAGE", options().message, "Text")->required()->type_name("");
    addText(send, "--header", options().header, "T", "Title");
    addNumber(send, "--level", options().urgency, 0, "N", "Urgency: 0 low, 1 normal (if not given), 2 to 255 critical");
    auto& limit = add("limit", "Limit a session's duration or inactivity", setLimits,
                      "0 takes a limit away. A session that is older than its duration ends; inactivity is watched by\n"
                      "the transport.\nExample:\n  vardctl limit 33 --duration 28800");
    addSession(limit);
    addNumber(limit, "--duration", options().duration, 0, "SEC", "Seconds from the start of the session");
    addNumber(limit, "--inactivity", options().inactivity, 0, "SEC", "Seconds without input");
    auto& size = add("resize", "Change the size of a session's screen", resize,
                     "Fails when the screen has another size afterwards.\nExample:\n  vardctl resize 33 1920x1080");
    addSession(size);
    addWord(size, "SIZE", "WIDTHxHEIGHT in pixels",
            [this](const std::string& word) { options().size = screenSize(word); });
    addSession(add("disconnect", "Disconnect a session's client; the session goes on", disconnect,
                   "Example:\n  vardctl disconnect 33"));
    addSessionOrUser(add("shutdown", "End a session; of a user, the one with the lowest id", shutdownSession,
                         "Does not wait for the end: `vardctl watch' shows it.\n"
                         "Examples:\n  vardctl shutdown 33\n  vardctl shutdown alice"));
}

void CommandLine::addServiceCommands() {
    auto& check =
        add("check", "Look whether all that the service needs is in order, and say what to do", checkMachine,
            "Changes nothing, and works without the service. Root alone may do it. Exit code 1 means an error\n"
            "was found; warnings end with 0.\nExamples:\n  vardctl check\n"
            "  vardctl check --config new.json && sudo install -m 644 new.json /etc/vard/vard_service.json");
    addText(check, "--config", options().configuration, "FILE", "The configuration, before it is taken");
    addJson(check);
    auto& level = add("log-level", "Choose how much the service logs", setLogLevel,
                      "Errors, warnings and notices are always written. Holds until the service starts anew or its\n"
                      "configuration changes.\nExample:\n  vardctl log-level debug");
    addWord(level, "LEVEL", "notice, info or debug",
            [this](const std::string& word) { options().logLevel = logLevel(word); });
    add("stop", "End every session and the service", stopService,
        "Does not wait for the end. systemd starts the service again; `systemctl stop vard_service' does not let it.\n"
        "Example:\n  vardctl stop");
}

// The library tells only that a subcommand is missing when a wrong one was given.
Failure usageFailure(const CLI::App& app, const std::string& message) {
    const auto chosen = app.get_subcommands();
    const auto words = app.remaining();
    const bool unknown = chosen.empty() && !words.empty() && !words[0].starts_with('-');
    const std::string help = chosen.empty() ? " --help" : " " + chosen[0]->get_name() + " --help";
    return {ExitCode::usage, (unknown ? "unknown subcommand: " + words[0] : message) + "; see vardctl" + help};
}

} // namespace

Invocation parseCommandLine(int argc, const char* const* argv) {
    Invocation invocation;
    CLI::App app("Controls the session daemon vard_service", "vardctl");
    app.footer(exitCodes);
    app.set_version_flag("--version", std::string("vardctl ") + Vard::buildVersion);
    app.require_subcommand(1);
    CommandLine commandLine(app, invocation);
    commandLine.addQueries();
    commandLine.addStarts();
    commandLine.addChanges();
    commandLine.addServiceCommands();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw usageFailure(app, error.what());
        }
        app.exit(error, std::cout, std::cerr);
        invocation.command = nullptr;
    }
    return invocation;
}

} // namespace Vardctl
