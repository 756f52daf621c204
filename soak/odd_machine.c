// Loaded into the service alone: its wall clock is ahead, or it gets no processes and threads, as a file says.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static const int64_t usual[2];
static volatile const int64_t* machine = usual; // seconds that the clock is ahead; whether nothing can be begun

__attribute__((constructor)) static void look(void) {
    const int fd = open(ODD_MACHINE_FILE, O_RDONLY | O_CLOEXEC);
    void* map = mmap(NULL, sizeof usual, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    machine = map == MAP_FAILED ? usual : map;
}

pid_t fork(void) {
    pid_t (*real)(void);
    *(void**)&real = dlsym(RTLD_NEXT, "fork");
    errno = EAGAIN;
    return machine[1] ? -1 : real();
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    int (*real)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    *(void**)&real = dlsym(RTLD_NEXT, "pthread_create");
    return machine[1] ? EAGAIN : real(thread, attributes, body, argument);
}

int clock_gettime(clockid_t clock, struct timespec* result) {
    const int status = (int)syscall(SYS_clock_gettime, clock, result);
    result->tv_sec += clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE ? machine[0] : 0;
    return status;
}

time_t time(time_t* result) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return result == NULL ? now.tv_sec : (*result = now.tv_sec);
}
