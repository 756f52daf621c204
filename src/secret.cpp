// What must not stay in memory, and its wiping.
#include "secret.h"

#include <pthread.h>
#include <string.h>

#include <mutex>
#include <set>

namespace Vard {

namespace {

// Fork waits for the lock: a child must not find it taken by a thread that it does not have.
class Registry {
public:
    static Registry& instance() {
        static Registry registry;
        return registry;
    }
    void add(Secret* secret) {
        const std::scoped_lock lock(mutex_);
        secrets_.insert(secret);
    }
    void remove(Secret* secret) {
        const std::scoped_lock lock(mutex_);
        secret->wipe();
        secrets_.erase(secret);
    }
    // No fork of another thread sees the text half changed.
    void replace(std::string& text, const std::string& fresh) {
        const std::scoped_lock lock(mutex_);
        Utils::wipe(text);
        text = fresh;
    }
    void wipeAll() {
        const std::scoped_lock lock(mutex_);
        for (auto* secret : secrets_) {
            secret->wipe();
        }
    }

private:
    Registry() {
        ::pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                         [] { instance().mutex_.unlock(); });
    }

    std::mutex mutex_;
    std::set<Secret*> secrets_;
};

} // namespace

namespace Utils {

void wipe(void* memory, size_t size) noexcept { ::explicit_bzero(memory, size); }

void wipe(std::string& text) noexcept {
    wipe(text.data(), text.capacity());
    text.clear();
}

void wipe(std::list<std::string>& texts) noexcept {
    for (auto& text : texts) {
        wipe(text);
    }
}

void wipe(std::vector<uint8_t>& bytes) noexcept {
    if (!bytes.empty()) { // an empty one has no place
        wipe(bytes.data(), bytes.size());
    }
    bytes.clear();
}

} // namespace Utils

int Secret::prepareForks() {
    Registry::instance();
    return 0;
}

Secret::Secret() { Registry::instance().add(this); }

Secret::Secret(const std::string& text) : Secret() { Registry::instance().replace(text_, text); }

Secret::~Secret() { Registry::instance().remove(this); }

void Secret::take(std::string& text) {
    Registry::instance().replace(text_, text);
    Utils::wipe(text);
}

void Secret::wipe() noexcept { Utils::wipe(text_); }

void Secret::wipeAll() noexcept { Registry::instance().wipeAll(); }

} // namespace Vard
