// A user who logs in and out all the time.
#include "user.h"

#include "world.h"

#include <sstream>
#include <stdexcept>

namespace Soak {

using namespace Test;
using namespace std::chrono_literals;

User::User(World& world, const std::string& name, unsigned seed) : world_(world), account_(name), random_(seed) {
    thread_ = std::thread([this] { run(); });
}

User::~User() {
    ending_ = true;
    thread_.join();
}

void User::run() {
    while (!ending_) {
        std::chrono::milliseconds pause;
        {
            const auto lock = hold();
            step();
            quiet_ = !session_;
            pause = std::chrono::milliseconds(pick(50, 150));
        }
        std::this_thread::sleep_for(pause);
    }
}

void User::step() {
    try {
        if (session_) {
            look();
        } else if (!world_.resting) {
            login();
        }
    } catch (const std::exception&) { // no bus at the moment
    }
}

void User::look() {
    const auto reply = ask();
    if (!reply.ok()) {
        return; // known when the service answers again
    }
    if (!isMine(reply)) {
        if (!session_->dying && !session_->mayGo && !world_.keeper->endedAsAsked(session_->generation)) {
            world_.table.count(&Fault::lost,
                               account_.name() + " " + std::to_string(session_->sid) + " " + reply.text.substr(0, 80));
        }
        session_.reset();
    } else if (!session_->dying && (world_.resting || std::chrono::steady_clock::now() > session_->end)) {
        giveUp();
    }
}

Reply User::ask() {
    auto reply = bus().call("vardSessionInfoJson", "u", static_cast<uint32_t>(session_->sid));
    if (!reply.ok()) {
        bus_.reset();
    }
    return reply;
}

bool User::isMine(const Reply& reply) const {
    return reply.text.find('"' + account_.name() + '"') != std::string::npos;
}

// After an error a new one: the bus may have been restarted.
Bus& User::bus() {
    if (!bus_) {
        bus_ = std::make_unique<Bus>(60s);
    }
    return *bus_;
}

bool User::login() {
    const int generation = world_.keeper->generation();
    const bool scarce = world_.scarce;
    const auto width = static_cast<uint16_t>(pick(300, 1000));
    const auto reply = bus().call("busSessionRequest", "ssyqq", account_.name().c_str(), "secret", 24, width, 480);
    if (!reply.ok() || reply.number < 0) {
        world_.table.count(&Fault::refused);
        bus_.reset();
        return false;
    }
    session_ = Session{reply.number, generation, scarce || world_.scarce, false,
                       std::chrono::steady_clock::now() + std::chrono::milliseconds(pick(200, 3000))};
    quiet_ = false;
    return true;
}

void User::begin() {
    for (int tries = 0; tries < 100; ++tries) {
        step();
        if (session_ && !session_->dying) {
            return;
        }
        std::this_thread::sleep_for(200ms);
    }
    throw std::runtime_error("no session for " + account_.name());
}

Json::Value User::session() {
    begin();
    Json::Value value;
    const auto reply = ask();
    std::istringstream(reply.text) >> value;
    if (!isMine(reply)) {
        throw std::runtime_error("no session of " + account_.name());
    }
    return value;
}

void User::giveUp() {
    if (session_ && !session_->dying) {
        bus().call("vardSessionShutdown", "u", static_cast<uint32_t>(session_->sid));
    }
    lose();
}

void User::lose() {
    if (session_) {
        session_->dying = true;
    }
}

} // namespace Soak
