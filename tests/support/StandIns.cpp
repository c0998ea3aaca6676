#include "tests/support/StandIns.h"

#include "tests/support/Sanitizers.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <ctime>

namespace ZNORBTEST {

void linkStandIns() {}

} // namespace ZNORBTEST

namespace {

using ZNORBTEST::InPlaceOf;

template <long number>
constexpr auto systemCall = [](auto... arguments) { return syscall(number, arguments...); };

/// The C library's own, for those that are more than a system call.
template <auto function>
auto next(const char* name) {
    return reinterpret_cast<decltype(function)>(dlsym(RTLD_NEXT, name));
}

time_t readClock(time_t* result) {
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return result != nullptr ? *result = now.tv_sec : now.tv_sec;
}

int sleepMicroseconds(useconds_t count) {
    const timespec length = {count / 1'000'000, static_cast<long>(count % 1'000'000) * 1000};
    return nanosleep(&length, nullptr);
}

} // namespace

extern "C" {

int chdir(const char* path) noexcept {
    return InPlaceOf<chdir>::call(systemCall<SYS_chdir>, path);
}

int chmod(const char* path, mode_t mode) noexcept {
    const auto original = [](auto... arguments) { return syscall(SYS_fchmodat, AT_FDCWD, arguments...); };
    return InPlaceOf<chmod>::call(original, path, mode);
}

int close_range(unsigned first, unsigned last, int flags) noexcept {
    return InPlaceOf<close_range>::call(systemCall<SYS_close_range>, first, last, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
    return InPlaceOf<connect>::call(systemCall<SYS_connect>, descriptor, address, length);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return InPlaceOf<fchmod>::call(systemCall<SYS_fchmod>, descriptor, mode);
}

hostent* gethostbyname(const char* name) {
    static const auto original = next<gethostbyname>("gethostbyname");
    return InPlaceOf<gethostbyname>::call(original, name);
}

int mkdir(const char* path, mode_t mode) noexcept {
    const auto original = [](auto... arguments) { return syscall(SYS_mkdirat, AT_FDCWD, arguments...); };
    return InPlaceOf<mkdir>::call(original, path, mode);
}

int pause() {
    return InPlaceOf<pause>::call([]() { return poll(nullptr, 0, -1); });
}

ssize_t process_vm_readv(pid_t process, const iovec* to, unsigned long toCount, const iovec* from,
                         unsigned long fromCount, unsigned long flags) noexcept {
    return InPlaceOf<process_vm_readv>::call(systemCall<SYS_process_vm_readv>, process, to, toCount, from,
                                             fromCount, flags);
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    const auto original = [](auto... arguments) { return syscall(SYS_readlinkat, AT_FDCWD, arguments...); };
    return InPlaceOf<readlink>::call(original, path, buffer, size);
}

int select(int highestPlusOne, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
    static const auto original = next<select>(sizeof(time_t) > sizeof(long) ? "__select64" : "select");
    return InPlaceOf<select>::call(original, highestPlusOne, reading, writing, exceptional, timeout);
}

int sem_unlink(const char* name) noexcept {
    static const auto original = next<sem_unlink>("sem_unlink");
    return InPlaceOf<sem_unlink>::call(original, name);
}

ssize_t send(int descriptor, const void* bytes, size_t length, int flags) {
    const auto original = [](auto... arguments) { return sendto(arguments..., nullptr, 0); };
    return InPlaceOf<send>::call(original, descriptor, bytes, length, flags);
}

time_t time(time_t* result) noexcept {
    return InPlaceOf<time>::call(readClock, result);
}

int unlink(const char* path) noexcept {
    return InPlaceOf<unlink>::call([](auto name) { return syscall(SYS_unlinkat, AT_FDCWD, name, 0); }, path);
}

int usleep(useconds_t microseconds) {
    return InPlaceOf<usleep>::call(sleepMicroseconds, microseconds);
}

#if !ZNORB_THREAD_SANITIZER // has its own for these
int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
    static const auto original = next<pthread_cond_destroy>("pthread_cond_destroy");
    return InPlaceOf<pthread_cond_destroy>::call(original, condition);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* limit) {
    static const auto original = next<pthread_cond_timedwait>(
        sizeof(time_t) > sizeof(long) ? "__pthread_cond_timedwait64" : "pthread_cond_timedwait");
    return InPlaceOf<pthread_cond_timedwait>::call(original, condition, mutex, limit);
}

int pthread_condattr_destroy(pthread_condattr_t* attributes) noexcept {
    static const auto original = next<pthread_condattr_destroy>("pthread_condattr_destroy");
    return InPlaceOf<pthread_condattr_destroy>::call(original, attributes);
}

int pthread_detach(pthread_t thread) noexcept {
    static const auto original = next<pthread_detach>("pthread_detach");
    return InPlaceOf<pthread_detach>::call(original, thread);
}

int pthread_join(pthread_t thread, void** result) {
    static const auto original = next<pthread_join>("pthread_join");
    return InPlaceOf<pthread_join>::call(original, thread, result);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    static const auto original = next<pthread_mutex_destroy>("pthread_mutex_destroy");
    return InPlaceOf<pthread_mutex_destroy>::call(original, mutex);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto original = next<pthread_mutex_lock>("pthread_mutex_lock");
    return InPlaceOf<pthread_mutex_lock>::call(original, mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const auto original = next<pthread_mutex_unlock>("pthread_mutex_unlock");
    return InPlaceOf<pthread_mutex_unlock>::call(original, mutex);
}

int pthread_mutexattr_destroy(pthread_mutexattr_t* attributes) noexcept {
    static const auto original = next<pthread_mutexattr_destroy>("pthread_mutexattr_destroy");
    return InPlaceOf<pthread_mutexattr_destroy>::call(original, attributes);
}

int sem_wait(sem_t* semaphore) {
    static const auto original = next<sem_wait>("sem_wait");
    return InPlaceOf<sem_wait>::call(original, semaphore);
}

ssize_t write(int descriptor, const void* bytes, size_t length) {
    return InPlaceOf<write>::call(systemCall<SYS_write>, descriptor, bytes, length);
}

#if !ZNORB_ADDRESS_SANITIZER // the sanitizers map by themselves
void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) noexcept {
    static const auto original = next<mmap>(sizeof(off_t) > sizeof(long) ? "mmap64" : "mmap");
    return InPlaceOf<mmap>::call(original, address, length, protection, flags, descriptor, offset);
}
#endif
#endif

} // extern "C"
