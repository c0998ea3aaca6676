/* znorb-cage CALL=ERROR -- COMMAND...: the command under a kernel, or a container, that answers this system
 * call with this error. Exit status 125: the line is wrong, or there can be no such cage. */
#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

struct Word {
    const char* text;
    unsigned number;
};

/* Where a call of that name is made by another number as well, it has a line for each. */
static const struct Word calls[] = {
    {"accept4", SYS_accept4},
    {"clone3", SYS_clone3},
    {"close_range", SYS_close_range},
    {"link", SYS_linkat},
    {"memfd_create", SYS_memfd_create},
    {"mount", SYS_mount},
    {"process_vm_readv", SYS_process_vm_readv},
    {"readlink", SYS_readlinkat},
    {"unshare", SYS_unshare},
#ifdef SYS_link
    {"link", SYS_link},
    {"readlink", SYS_readlink},
#endif
};
static const struct Word errors[] = {{"ENOSYS", ENOSYS}, {"EPERM", EPERM}};

static int is_called(const struct Word* word, const char* text, size_t length) {
    return strlen(word->text) == length && strncmp(word->text, text, length) == 0;
}

static int close_in(unsigned call, unsigned error) {
    struct sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const struct sock_fprog program = {sizeof filter / sizeof *filter, filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

int main(int argc, char** argv) {
    const char* sign = argc > 3 ? strchr(argv[1], '=') : NULL;
    if (sign == NULL || strcmp(argv[2], "--") != 0) {
        (void)fputs("usage: znorb-cage CALL=ERROR -- COMMAND [ARGUMENT...]\n", stderr);
        return 125;
    }
    unsigned cages = 0;
    for (const struct Word* error = errors; error < errors + sizeof errors / sizeof *errors; ++error) {
        for (const struct Word* call = calls; call < calls + sizeof calls / sizeof *calls; ++call) {
            if (is_called(error, sign + 1, strlen(sign + 1)) &&
                is_called(call, argv[1], (size_t)(sign - argv[1])) && close_in(call->number, error->number)) {
                ++cages;
            }
        }
    }
    if (cages == 0) {
        (void)fprintf(stderr, "znorb-cage: no cage for %s\n", argv[1]);
        return 125;
    }
    (void)execvp(argv[3], argv + 3);
    perror("znorb-cage");
    return 127;
}
