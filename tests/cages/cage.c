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

static const struct Word calls[] = {{"clone3", SYS_clone3}};
static const struct Word errors[] = {{"ENOSYS", ENOSYS}, {"EPERM", EPERM}};

static const struct Word* find(const struct Word* words, size_t count, const char* text, size_t length) {
    for (size_t index = 0; index < count; ++index) {
        if (strlen(words[index].text) == length && strncmp(words[index].text, text, length) == 0) {
            return &words[index];
        }
    }
    return NULL;
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
    const struct Word* call = find(calls, sizeof calls / sizeof *calls, argv[1], (size_t)(sign - argv[1]));
    const struct Word* error = find(errors, sizeof errors / sizeof *errors, sign + 1, strlen(sign + 1));
    if (call == NULL || error == NULL || !close_in(call->number, error->number)) {
        (void)fprintf(stderr, "znorb-cage: no cage for %s\n", argv[1]);
        return 125;
    }
    (void)execvp(argv[3], argv + 3);
    perror("znorb-cage");
    return 127;
}
