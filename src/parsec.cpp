// Mandatory labels of the PARSEC platform, loaded at run time. The declarations below are assumptions made from how the
// calls are used; the platform's own headers are not available where this is built. Nothing else knows of them.
#include "parsec.h"

#include "logger.h"

#include <dlfcn.h>
#include <unistd.h>

namespace Vard::Parsec {

namespace {

struct ProcessLabel; // opaque, owned by the library

// Assumed: the user's integrity level, and whether there is one.
struct IntegrityRecord {
    uint32_t ilev;
};

// Assumed: the lower and the upper end of the user's labels.
struct LabelRecord {
    uint32_t minLevel;
    uint64_t minCategories;
    uint32_t maxLevel;
    uint64_t maxCategories;
};

/// The calls that are used, all or none of them.
struct Calls {
    int (*pdpInit)() = nullptr; // 0: the platform is active
    void (*pdpRelease)() = nullptr;
    ProcessLabel* (*pdpGetPid)(pid_t) = nullptr;
    int (*pdpSetPid)(pid_t, const ProcessLabel*) = nullptr;
    int (*setIlev)(ProcessLabel*, uint32_t) = nullptr;
    int (*setLev)(ProcessLabel*, uint32_t) = nullptr;
    int (*setCat)(ProcessLabel*, uint64_t) = nullptr;
    int (*setType)(ProcessLabel*, uint32_t) = nullptr;
    int (*getMic)(uid_t, IntegrityRecord*) = nullptr; // 0: found
    int (*getMac)(uid_t, LabelRecord*) = nullptr; // 0: found
    bool complete = false;
};

template <typename Function>
bool find(void* library, const char* name, Function& function) {
    function = library != nullptr ? reinterpret_cast<Function>(::dlsym(library, name)) : nullptr;
    return function != nullptr;
}

Calls loadCalls() {
    void* pdp = ::dlopen("libpdp.so.3", RTLD_NOW | RTLD_GLOBAL);
    pdp = pdp != nullptr ? pdp : ::dlopen("libpdp.so", RTLD_NOW | RTLD_GLOBAL);
    void* mic = ::dlopen("libparsec-mic.so.3", RTLD_NOW | RTLD_GLOBAL);
    mic = mic != nullptr ? mic : ::dlopen("libparsec-mic.so", RTLD_NOW | RTLD_GLOBAL);
    Calls calls;
    calls.complete = find(pdp, "pdp_init", calls.pdpInit) && find(pdp, "pdp_release", calls.pdpRelease) &&
                     find(pdp, "pdp_get_pid", calls.pdpGetPid) && find(pdp, "pdp_set_pid", calls.pdpSetPid) &&
                     find(pdp, "pdpl_set_ilev", calls.setIlev) && find(pdp, "pdpl_set_lev", calls.setLev) &&
                     find(pdp, "pdpl_set_cat", calls.setCat) && find(pdp, "pdpl_set_type", calls.setType) &&
                     find(mic, "getmicuid", calls.getMic) && find(mic, "getmacuid", calls.getMac);
    return calls;
}

const Calls& calls() {
    static const Calls loaded = loadCalls();
    return loaded;
}

} // namespace

void load() { calls(); }

bool available() { return calls().complete; }

std::optional<uint32_t> userIntegrity(uid_t uid) {
    IntegrityRecord record{};
    if (!available() || calls().getMic(uid, &record) != 0) {
        return std::nullopt;
    }
    return record.ilev;
}

std::optional<LabelRange> userLabels(uid_t uid) {
    LabelRecord record{};
    if (!available() || calls().getMac(uid, &record) != 0) {
        return std::nullopt;
    }
    return LabelRange{{record.minLevel, record.minCategories}, {record.maxLevel, record.maxCategories}};
}

bool applyIntegrity(uint32_t ilev, const char* func) {
    if (!available() || calls().pdpInit() != 0) {
        return true; // a system without labels
    }
    ProcessLabel* label = calls().pdpGetPid(0);
    Syslog::info("%s: set PARSEC MIC ilev: %u for current process, pid: %d", func, ilev, ::getpid());
    const bool applied = label != nullptr && calls().setIlev(label, ilev) == 0 && calls().setLev(label, 0) == 0 &&
                         calls().setCat(label, 0) == 0 && calls().setType(label, 0) == 0 &&
                         calls().pdpSetPid(0, label) == 0;
    if (!applied) {
        Syslog::error("%s: PARSEC label refused, ilev: %u, pid: %d", func, ilev, ::getpid());
    }
    calls().pdpRelease();
    return applied;
}

} // namespace Vard::Parsec
