/*
 * Preloaded into the daemon under helgrind, does two things in a way that helgrind can follow.
 *
 * It calls every failed call an error, but `-d` and `-stop` find out with a failing sem_open that there is no
 * instance: here that is found out without the call. And it knows one process only, but the event for which
 * the starting process waits is set in the daemon: here the wait ends of itself again and again, as a wait
 * may. Everything else of the C library stays the library's, and helgrind's to check.
 */
#define _GNU_SOURCE

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>

enum { mostMappings = 8, pathSize = 300 };

/* Of memory that processes share. Made before main, by one thread; never removed. */
static struct {
    uintptr_t start;
    uintptr_t end;
} mappings[mostMappings];
static unsigned mappingCount;

/* The C library's own function of that name, into the pointer to which `function` points. */
static void findNext(const char* name, void* function) {
    void* const address = dlsym(RTLD_NEXT, name);
    (void)memcpy(function, &address, sizeof address);
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) {
    void* (*next)(void*, size_t, int, int, int, off_t);
    findNext("mmap", &next);
    void* const mapping = next(address, length, protection, flags, descriptor, offset);
    if (mapping != MAP_FAILED && flags == (MAP_SHARED | MAP_ANONYMOUS) && mappingCount < mostMappings) {
        mappings[mappingCount].start = (uintptr_t)mapping;
        mappings[mappingCount].end = (uintptr_t)mapping + length;
        ++mappingCount;
    }
    return mapping;
}

static int isSharedBetweenProcesses(const void* address) {
    for (unsigned index = 0; index < mappingCount; ++index) {
        if ((uintptr_t)address >= mappings[index].start && (uintptr_t)address < mappings[index].end) {
            return 1;
        }
    }
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static const struct timespec pause = {.tv_nsec = 1000000};
    if (!isSharedBetweenProcesses(condition)) {
        int (*next)(pthread_cond_t*, pthread_mutex_t*);
        findNext("pthread_cond_wait", &next);
        return next(condition, mutex);
    }
    (void)pthread_mutex_unlock(mutex);
    (void)nanosleep(&pause, NULL);
    return pthread_mutex_lock(mutex);
}

sem_t* sem_open(const char* name, int flags, ...) {
    sem_t* (*next)(const char*, int, ...);
    findNext("sem_open", &next);
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = va_arg(arguments, mode_t);
        const unsigned count = va_arg(arguments, unsigned);
        va_end(arguments);
        return next(name, flags, mode, count);
    }
    char path[pathSize];
    (void)snprintf(path, sizeof path, "/dev/shm/sem.%s", name + strspn(name, "/"));
    struct stat status;
    if (lstat(path, &status) != 0 && errno == ENOENT) {
        return SEM_FAILED;
    }
    return next(name, flags);
}
