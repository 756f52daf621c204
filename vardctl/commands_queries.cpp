// The subcommands that ask and print.
#include "commands.h"
#include "session_info.h"
#include "table.h"
#include "terminal_text.h"

#include <iomanip>
#include <iostream>

namespace Vardctl {

namespace {

bool isOnline(const Json::Value& session) { return session["pid3"].asInt() > 0; }

// The service remembers the address of a client that has left.
Json::Value withoutLastAddress(Json::Value session) {
    if (!isOnline(session)) {
        session["remoteaddr"] = "";
    }
    return session;
}

void addDetails(Json::Value& entry, const Json::Value& session) {
    entry["state"] = isOnline(session) ? "online" : "detached";
    entry["address"] = session["remoteaddr"];
    entry["start"] = session["start"];
    entry["size"] = sizeText(session);
    entry["program"] = session["xsession"];
}

// A session that ends between the two queries is left out.
Json::Value sessionList(Service& service) {
    Json::Value list(Json::arrayValue);
    for (auto& entry : sessionRows(service)) {
        if (const auto session = findSession(service, entry["session"].asUInt())) {
            addDetails(entry, withoutLastAddress(*session));
            list.append(entry);
        }
    }
    return list;
}

void printTable(const Table& table, const Options& options) { std::cout << table.layout(!options.noLegend); }

// Whoever has the hash can log in with it, and what is printed stays in terminals and logs.
Json::Value shown(Json::Value session, const Options& options) {
    if (!options.secrets && !session["ntlm"].asString().empty()) {
        session["ntlm"] = "(hidden)";
    }
    return withoutLastAddress(std::move(session));
}

void printMembers(const Json::Value& session) {
    for (const auto& key : session.getMemberNames()) {
        std::cout << harmless(key) << '=' << harmless(session[key].asString()) << '\n';
    }
}

Json::Value userSessions(Service& service, const std::string& user) {
    auto sessions = sessionsOf(service, user);
    if (sessions.empty()) {
        throw Failure(ExitCode::failed, "no session of user: " + user);
    }
    return sessions;
}

} // namespace

void listSessions(const Options& options) {
    Service service;
    const auto list = sessionList(service);
    if (options.json) {
        std::cout << jsonLine(list);
        return;
    }
    constexpr auto right = Table::Align::right;
    Table table({{"SESSION", right}, {"USER"}, {"DISPLAY"}, {"STATE"}, {"ADDRESS"}, {"AGE"}, {"SIZE"}, {"PROGRAM"}});
    for (const auto& entry : list) {
        table.add({entry["session"].asString(), entry["user"].asString(), entry["display"].asString(),
                   entry["state"].asString(), entry["address"].asString(), ageText(entry["age"].asUInt()),
                   entry["size"].asString(), entry["program"].asString()});
    }
    printTable(table, options);
}

void showSessions(const Options& options) {
    const auto target = chooseTarget(options.target, options.forceUser);
    Service service;
    if (const auto* id = std::get_if<uint32_t>(&target)) {
        const auto session = shown(requireSession(service, *id), options);
        options.json ? void(std::cout << jsonLine(session)) : printMembers(session);
        return;
    }
    auto sessions = userSessions(service, std::get<std::string>(target));
    for (auto& session : sessions) {
        session = shown(session, options);
    }
    if (options.json) {
        std::cout << jsonLine(sessions);
        return;
    }
    for (const auto& session : sessions) {
        std::cout << (&session == &sessions[0] ? "" : "\n");
        printMembers(session);
    }
}

void listProcesses(const Options& options) {
    const auto id = options.session;
    Service service;
    const auto answer = service.query("vardSessionProcess", "u", id).text();
    if (answer.empty()) {
        throw noSession(id);
    }
    const auto processes = parseJson(answer);
    if (options.json) {
        std::cout << jsonLine(processes);
        return;
    }
    Table table({{"PID", Table::Align::right}, {"COMMAND"}});
    for (const auto& process : processes) {
        table.add({process["pid"].asString(), process["cmd"].asString()});
    }
    printTable(table, options);
}

void listPrograms(const Options& options) {
    Service service;
    Json::Value list(Json::arrayValue);
    for (const auto& name : service.query("vardProgramList").texts()) {
        list.append(name);
        if (!options.json) {
            std::cout << harmless(name) << '\n';
        }
    }
    if (options.json) {
        std::cout << jsonLine(list);
    }
}

void showAddress(const Options& options) {
    Service service;
    const auto address = service.query("vardSessionDBusAddress", "s", options.target.c_str()).text();
    if (address.empty()) {
        throw Failure(ExitCode::failed, "no session bus is known of user: " + options.target);
    }
    Json::Value answer;
    answer["user"] = options.target;
    answer["address"] = address;
    std::cout << (options.json ? jsonLine(answer) : harmless(address) + "\n");
}

void showStatus(const Options& options) {
    Service service;
    Json::Value status;
    status["alive"] = service.query("vardStatus").flag();
    status["version"] = service.query("vardTest").text();
    status["load"] = service.query("vardLoadAverage").real();
    status["sessions"] = service.query("zabbixSessionsTotal").count();
    status["online"] = service.query("zabbixSessionsOnline").count();
    const char* const closing = closedBy();
    status["draining"] = closing != nullptr;
    if (options.json) {
        std::cout << jsonLine(status);
        return;
    }
    std::cout << "Version:  " << harmless(status["version"].asString()) << '\n'
              << "Load:     " << std::fixed << std::setprecision(1) << status["load"].asDouble() << " %\n"
              << "Sessions: " << status["sessions"].asUInt() << '\n'
              << "Online:   " << status["online"].asUInt() << '\n'
              << "Draining: " << (closing != nullptr ? std::string("yes, by ") + closing : "no") << '\n';
}

} // namespace Vardctl
