#include "tests/tracing/SystemCalls.h"

#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace ZNORBTRACING {
namespace {

// Grouped by what the manual pages have in common.
const std::vector<int> pathErrors = {EACCES, EINVAL, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR};
const std::vector<int> openErrors = {EACCES, EBUSY,   EDQUOT, EEXIST,       EFBIG,  EINTR,  EINVAL, EIO,
                                     EISDIR, ELOOP,   EMFILE, ENAMETOOLONG, ENFILE, ENODEV, ENOENT, ENOMEM,
                                     ENOSPC, ENOTDIR, ENXIO,  EOVERFLOW,    EPERM,  EROFS,  ETXTBSY};
const std::vector<int> entryErrors = {EACCES,       EBUSY,  EDQUOT, EEXIST, EINVAL,  EIO,   ELOOP, EMLINK,
                                      ENAMETOOLONG, ENOENT, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, EXDEV};
const std::vector<int> removalErrors = {EACCES,       EBUSY,  EINVAL, EIO,     EISDIR, ELOOP,
                                        ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EPERM,  EROFS};
const std::vector<int> modeErrors = {EACCES, EINVAL, EIO,     ELOOP, ENAMETOOLONG,
                                     ENOENT, ENOMEM, ENOTDIR, EPERM, EROFS};
const std::vector<int> executionErrors = {E2BIG,  EACCES, EIO,     EISDIR, ELOOP, EMFILE,
                                          ENFILE, ENOENT, ENOEXEC, ENOMEM, EPERM, ETXTBSY};
const std::vector<int> readErrors = {EAGAIN, EBADF, EINTR, EIO, EISDIR};
const std::vector<int> writeErrors = {EAGAIN, EBADF, EDQUOT, EFBIG, EINTR, EIO, ENOSPC, EPERM};
const std::vector<int> mappingErrors = {EACCES, EAGAIN, EBADF,     EINVAL, ENFILE,
                                        ENODEV, ENOMEM, EOVERFLOW, EPERM};
const std::vector<int> socketErrors = {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM};
const std::vector<int> bindErrors = {EACCES,       EADDRINUSE, EADDRNOTAVAIL, EBADF,  EINVAL,  ELOOP,
                                     ENAMETOOLONG, ENOENT,     ENOMEM,        ENOSPC, ENOTDIR, EROFS};
const std::vector<int> acceptErrors = {EAGAIN, EBADF,   ECONNABORTED, EINTR, EINVAL, EMFILE,
                                       ENFILE, ENOBUFS, ENOMEM,       EPERM, EPROTO};
const std::vector<int> connectErrors = {EACCES,      EADDRINUSE,   EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN,
                                        EBADF,       ECONNREFUSED, EHOSTUNREACH,  EINTR,        EISCONN,
                                        ENETUNREACH, ENOENT,       EPERM,         EPROTOTYPE,   ETIMEDOUT};
const std::vector<int> sendErrors = {EAGAIN, EBADF, ECONNRESET, EINTR, ENOBUFS, ENOMEM, EPIPE};
const std::vector<int> receiveErrors = {EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EINTR, ENOMEM, ENOTCONN};

const std::vector<SystemCall>& allCalls() {
    static const std::vector<SystemCall> calls = {
        {SYS_openat, "openat", Object::PathInSecond, false, openErrors},
#ifdef SYS_newfstatat
        {SYS_newfstatat, "newfstatat", Object::PathInSecond, false, pathErrors},
#endif
        {SYS_readlinkat, "readlinkat", Object::PathInSecond, false, pathErrors},
        {SYS_unlinkat, "unlinkat", Object::PathInSecond, false, removalErrors},
        {SYS_mkdirat, "mkdirat", Object::PathInSecond, false, entryErrors},
        {SYS_fchmodat, "fchmodat", Object::PathInSecond, false, modeErrors},
        {SYS_statx, "statx", Object::PathInSecond, false, pathErrors},
#ifdef SYS_open
        {SYS_open, "open", Object::PathInFirst, false, openErrors},
        {SYS_stat, "stat", Object::PathInFirst, false, pathErrors},
        {SYS_access, "access", Object::PathInFirst, false, pathErrors},
        {SYS_readlink, "readlink", Object::PathInFirst, false, pathErrors},
        {SYS_unlink, "unlink", Object::PathInFirst, false, removalErrors},
        {SYS_mkdir, "mkdir", Object::PathInFirst, false, entryErrors},
        {SYS_chmod, "chmod", Object::PathInFirst, false, modeErrors},
        {SYS_link, "link", Object::Link, false, entryErrors},
        {SYS_dup2, "dup2", Object::Copy, false, {EBADF, EBUSY, EINTR, EMFILE}},
        {SYS_fork, "fork", Object::None, false, {EAGAIN, ENOMEM}},
        {SYS_vfork, "vfork", Object::None, false, {EAGAIN, ENOMEM}},
        {SYS_select, "select", Object::Highest, false, {EBADF, EINTR, EINVAL, ENOMEM}},
#endif
        {SYS_chdir, "chdir", Object::PathInFirst, false, pathErrors},
        {SYS_execve, "execve", Object::PathInFirst, false, executionErrors},
        {SYS_close, "close", Object::Descriptor, false, {EBADF, EINTR, EIO}},
        {SYS_close_range, "close_range", Object::Range, false, {EINVAL, EMFILE, ENOMEM, ENOSYS}},
        {SYS_read, "read", Object::Descriptor, true, readErrors},
        {SYS_pread64, "pread64", Object::Descriptor, true, readErrors},
        {SYS_write, "write", Object::Descriptor, true, writeErrors},
        {SYS_lseek, "lseek", Object::Descriptor, false, {EBADF, EINVAL, ESPIPE}},
        {SYS_fstat, "fstat", Object::Descriptor, false, {EBADF, EIO, ENOMEM}},
        {SYS_fcntl, "fcntl", Object::Descriptor, false, {EBADF, EINTR}},
        {SYS_fchmod, "fchmod", Object::Descriptor, false, {EACCES, EBADF, EIO, EPERM, EROFS}},
        {SYS_ftruncate,
         "ftruncate",
         Object::Descriptor,
         false,
         {EACCES, EBADF, EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM}},
        {SYS_dup3, "dup3", Object::Copy, false, {EBADF, EBUSY, EINTR, EMFILE}},
        {SYS_mmap, "mmap", Object::Mapping, false, mappingErrors},
        {SYS_munmap, "munmap", Object::Memory, false, {EINVAL, ENOMEM}},
        {SYS_mprotect, "mprotect", Object::Memory, false, {EACCES, EINVAL, ENOMEM}},
        {SYS_madvise, "madvise", Object::Memory, false, {EAGAIN, EINVAL, ENOMEM}},
        {SYS_process_vm_readv, "process_vm_readv", Object::None, true, {EFAULT, ENOMEM, ENOSYS, EPERM}},
        {SYS_brk, "brk", Object::Break, false, {ENOMEM}},
        {SYS_clone, "clone", Object::Process, false, {EAGAIN, ENOMEM, EPERM}},
        {SYS_clone3, "clone3", Object::ProcessByRecord, false, {EAGAIN, ENOMEM, ENOSYS, EPERM}},
        {SYS_socket, "socket", Object::Family, false, socketErrors},
        {SYS_bind, "bind", Object::Descriptor, false, bindErrors},
        {SYS_listen, "listen", Object::Descriptor, false, {EADDRINUSE, EBADF, EINVAL, EOPNOTSUPP}},
#ifdef SYS_accept
        {SYS_accept, "accept", Object::Descriptor, false, acceptErrors},
#endif
        {SYS_accept4, "accept4", Object::Descriptor, false, acceptErrors},
        {SYS_connect, "connect", Object::Descriptor, false, connectErrors},
        {SYS_sendto, "sendto", Object::Descriptor, true, sendErrors},
        {SYS_recvfrom, "recvfrom", Object::Descriptor, true, receiveErrors},
        {SYS_shutdown, "shutdown", Object::Descriptor, false, {EBADF, EINVAL, ENOTCONN}},
        {SYS_pselect6, "pselect6", Object::Highest, false, {EBADF, EINTR, EINVAL, ENOMEM}},
        {SYS_rt_sigaction, "rt_sigaction", Object::Signal, false, {EFAULT, EINVAL}},
        {SYS_rt_sigprocmask, "rt_sigprocmask", Object::None, false, {EFAULT, EINVAL}},
        {SYS_setpgid, "setpgid", Object::None, false, {EACCES, EINVAL, EPERM, ESRCH}},
        {SYS_clock_nanosleep, "clock_nanosleep", Object::None, false, {EINTR, EINVAL}},
        {SYS_prlimit64, "prlimit64", Object::None, false, {EINVAL, EPERM}},
        {SYS_set_robust_list, "set_robust_list", Object::None, false, {EINVAL}},
        {SYS_rseq, "rseq", Object::None, false, {EINVAL, ENOSYS, EPERM}},
    };
    return calls;
}

template <typename Condition>
const SystemCall* findWhere(Condition condition) {
    const std::vector<SystemCall>& calls = allCalls();
    const auto found = std::find_if(calls.begin(), calls.end(), condition);
    return found == calls.end() ? nullptr : &*found;
}

} // namespace

const SystemCall* findSystemCall(long number) {
    return findWhere([number](const SystemCall& call) { return call.number == number; });
}

const SystemCall* findSystemCall(const std::string& name) {
    return findWhere([&name](const SystemCall& call) { return name == call.name; });
}

bool isLeftOut(long number) {
    static constexpr long leftOut[] = {
        SYS_getpid,     SYS_gettid, SYS_getppid,   SYS_geteuid,         SYS_umask,        SYS_exit,
        SYS_exit_group, SYS_futex,  SYS_getrandom, SYS_set_tid_address, SYS_rt_sigreturn, SYS_restart_syscall,
#ifdef SYS_arch_prctl
        SYS_arch_prctl,
#endif
    };
    return std::find(std::begin(leftOut), std::end(leftOut), number) != std::end(leftOut);
}

std::string errorName(int error) {
    const char* name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

} // namespace ZNORBTRACING
