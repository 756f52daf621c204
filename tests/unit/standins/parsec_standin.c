/* Records what is asked of the label libraries, which exist on their platform only. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

static void note(const char* call, unsigned long value) {
    FILE* file = fopen(getenv("PARSEC_STANDIN_LOG"), "a");
    if (file != NULL) {
        fprintf(file, "%s %lu\n", call, value);
        fclose(file);
    }
}

/* Notes the call; whether it is the one that is to fail. */
static int refused(const char* call, unsigned long value) {
    const char* refuse = getenv("PARSEC_STANDIN_REFUSE");
    note(call, value);
    return refuse != NULL && strcmp(refuse, call) == 0;
}

static int label = 4711;

/* Looks into the label like a library would: there must be one, and the one that was given out. */
static int set(const char* call, const void* target, unsigned long value) {
    return refused(call, value) || *(const int*)target != label ? -1 : 0;
}

int pdp_init(void) { return refused("pdp_init", 0) ? -1 : 0; }
void pdp_release(void) { note("pdp_release", 0); }
void* pdp_get_pid(pid_t pid) { return refused("pdp_get_pid", (unsigned long)pid) ? NULL : &label; }
int pdp_set_pid(pid_t pid, const void* target) { return set("pdp_set_pid", target, (unsigned long)pid); }
int pdpl_set_ilev(void* target, uint32_t ilev) { return set("pdpl_set_ilev", target, ilev); }
int pdpl_set_lev(void* target, uint32_t lev) { return set("pdpl_set_lev", target, lev); }
int pdpl_set_cat(void* target, uint64_t cat) { return set("pdpl_set_cat", target, cat); }
int pdpl_set_type(void* target, uint32_t type) { return set("pdpl_set_type", target, type); }
int getmicuid(uid_t uid, uint32_t* ilev) { *ilev = uid + 60; return uid == 1 ? 0 : -1; }
int getmacuid(uid_t uid, void* record) {
    struct { uint32_t a; uint64_t b; uint32_t c; uint64_t d; }* range = record;
    range->a = 1; range->b = 2; range->c = 3; range->d = 4;
    return uid == 1 ? 0 : -1;
}
