/* Records what is asked of the label libraries, which exist on their platform only. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>

static void note(const char* call, unsigned long value) {
    FILE* file = fopen(getenv("PARSEC_STANDIN_LOG"), "a");
    if (file != NULL) {
        fprintf(file, "%s %lu\n", call, value);
        fclose(file);
    }
}

static int label;

int pdp_init(void) { note("pdp_init", 0); return 0; }
void pdp_release(void) { note("pdp_release", 0); }
void* pdp_get_pid(pid_t pid) { note("pdp_get_pid", (unsigned long)pid); return &label; }
int pdp_set_pid(pid_t pid, const void* value) { note("pdp_set_pid", (unsigned long)pid); return value == &label ? 0 : -1; }
int pdpl_set_ilev(void* value, uint32_t ilev) { note("pdpl_set_ilev", ilev); return value == &label ? 0 : -1; }
int pdpl_set_lev(void* value, uint32_t lev) { note("pdpl_set_lev", lev); return value == &label ? 0 : -1; }
int pdpl_set_cat(void* value, uint64_t cat) { note("pdpl_set_cat", cat); return value == &label ? 0 : -1; }
int pdpl_set_type(void* value, uint32_t type) { note("pdpl_set_type", type); return value == &label ? 0 : -1; }
int getmicuid(uid_t uid, uint32_t* ilev) { *ilev = uid + 60; return uid == 1 ? 0 : -1; }
int getmacuid(uid_t uid, void* record) {
    struct { uint32_t a; uint64_t b; uint32_t c; uint64_t d; }* range = record;
    range->a = 1; range->b = 2; range->c = 3; range->d = 4;
    return uid == 1 ? 0 : -1;
}
