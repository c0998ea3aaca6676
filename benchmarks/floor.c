/*
 * The floor under the daemon's figures: the least program that does what a requester and a client can see,
 * with just the system calls that this takes. One thread, no log, no checks; every error ends it. The
 * processes of its start that end do so by exit, as the daemon's must, or with ZNORB_LEAST at once. Not for
 * use.
 *
 *     znorb-floor -d [<MiB of ballast>]
 *
 * starts in the background as the daemon does, makes the same names, serves the same three requests on the
 * same socket and starts the same program with the same arguments. The ballast is touched memory that every
 * fork has to copy the page tables of.
 */
#define _GNU_SOURCE

#include "znorb/shared_table.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static const char lockName[] = "/znorb.appLock";
static const char lockFile[] = "/dev/shm/sem.znorb.appLock";
static const char started[] = "The ZN Orbisan daemon has started.\n";
static const char socketPath[] = "/var/run/znorb.socket";

enum {
    acceptSeconds = 5,
    requestSeconds = 60,
    responseSeconds = 1800,
    bufferSize = 1024,
    responseSize = 8192
};

static struct znorb_shared_table* table;
static char directory[81];
static char program[128];

static void require(int holds) {
    if (!holds) {
        _exit(1);
    }
}

static void endAtOnce(int signalNumber) {
    (void)signalNumber;
    (void)unlink(lockFile);
    _exit(10);
}

static _Noreturn void end(void) {
#ifdef ZNORB_LEAST
    _exit(0);
#else
    exit(0);
#endif
}

static int isReadable(int descriptor, long seconds) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(descriptor, &set);
    struct timeval limit = {seconds, 0};
    return select(descriptor + 1, &set, NULL, NULL, &limit) == 1;
}

/* The pipe's other end stays with the invoking process, which ends when a byte comes. */
static void daemonize(int* ready) {
    int ends[2];
    require(pipe(ends) == 0);
    (void)signal(SIGTTOU, SIG_IGN);
    (void)signal(SIGTTIN, SIG_IGN);
    (void)signal(SIGTSTP, SIG_IGN);
    if (fork() > 0) {
        char byte;
        require(close(ends[1]) == 0 && read(ends[0], &byte, 1) == 1);
        (void)!write(STDOUT_FILENO, started, sizeof started - 1);
        end();
    }
    (void)setpgid(0, 0);
    (void)signal(SIGHUP, SIG_IGN);
    if (fork() > 0) {
        end();
    }
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        const int null = open("/dev/null", descriptor == 0 ? O_RDONLY : O_WRONLY);
        (void)dup2(null, descriptor);
        (void)close(null);
    }
    (void)dup2(ends[1], 3);
    (void)close_range(4, 255, 0);
    (void)fcntl(3, F_SETFD, FD_CLOEXEC);
    (void)umask(0);
    (void)signal(SIGTERM, endAtOnce);
    (void)signal(SIGCHLD, SIG_IGN);
    *ready = 3;
}

static void findClient(void) {
    const ssize_t length = readlink("/proc/self/exe", directory, sizeof directory - 1);
    require(length > 0);
    *strrchr(directory, '/') = '\0';
    (void)snprintf(program, sizeof program, "%s/znorbclient", directory);
}

static void makeTable(void) {
    const int object = shm_open(ZNORB_TABLE_NAME, O_RDWR | O_CREAT | O_EXCL, 0777);
    require(object != -1 && fchmod(object, 0666) == 0 && ftruncate(object, ZNORB_TABLE_SIZE) == 0);
    table = mmap(NULL, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, object, 0);
    require(table != MAP_FAILED && close(object) == 0);
    (void)memset(table, 0, sizeof *table);
}

static int makeListener(void) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    (void)strcpy(address.sun_path, socketPath);
    (void)unlink(socketPath);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(bind(listener, (struct sockaddr*)&address, sizeof address) == 0);
    require(chmod(socketPath, 0666) == 0 && listen(listener, 5) == 0);
    return listener;
}

static unsigned claim(void) {
    unsigned index = 0;
    while (index < table->count && table->entries[index].in_use != 0) {
        ++index;
    }
    require(index < ZNORB_TABLE_CAPACITY);
    if (index == table->count) {
        ++table->count;
    }
    table->entries[index].in_use = 1;
    table->entries[index].port = 0;
    return index;
}

/* "GET|language|time-out" in `request`, which is cut into its words. */
static unsigned startClient(char* request) {
    const unsigned index = claim();
    char number[12];
    (void)snprintf(number, sizeof number, "%u", index);
    char* const language = request + 4;
    char* const timeout = strchr(language, '|');
    char* arguments[] = {program, "-lang", language, "-wbx", "-index", number, NULL, NULL, NULL};
    if (timeout != NULL) {
        *timeout = '\0';
        arguments[6] = "-timeout";
        arguments[7] = timeout + 1;
    }
    if (fork() == 0) {
        (void)!chdir(directory);
        (void)execvp(program, arguments);
        _exit(1);
    }
    return index;
}

static void askToExit(in_port_t port) {
    static const char request[] = "POST /ExitApplication.json HTTP/1.0\r\nContent-Length: 0\r\n\r\n";
    char response[responseSize];
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons(port)};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connection, (struct sockaddr*)&address, sizeof address) == 0) {
        (void)send(connection, request, sizeof request - 1, MSG_NOSIGNAL);
        if (isReadable(connection, responseSeconds)) {
            (void)recv(connection, response, sizeof response, 0);
        }
        (void)shutdown(connection, SHUT_RDWR);
    }
    (void)close(connection);
}

static void sweep(void) {
    for (unsigned index = 0; index < table->count; ++index) {
        if (table->entries[index].in_use != 0) {
            askToExit(table->entries[index].port);
        }
    }
}

/* True after "QUIT". */
static int serve(int connection) {
    char request[bufferSize + 1];
    const ssize_t length =
        isReadable(connection, requestSeconds) ? recv(connection, request, bufferSize, 0) : -1;
    if (length <= 0) {
        (void)close(connection);
        return 0;
    }
    request[length] = '\0';
    const int isQuit = strcmp(request, "QUIT") == 0;
    char reply[12] = "0";
    if (isQuit) {
        sweep();
    } else if (strncmp(request, "GET|", 4) == 0) {
        (void)snprintf(reply, sizeof reply, "%u", startClient(request));
    }
    (void)send(connection, reply, strlen(reply), MSG_NOSIGNAL);
    (void)shutdown(connection, SHUT_RDWR);
    (void)close(connection);
    return isQuit;
}

static void touchBallast(const char* mebibytes) {
    const size_t size = (size_t)atoi(mebibytes) << 20U;
    char* const memory = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED);
    for (size_t offset = 0; offset < size; offset += 4096) {
        memory[offset] = 1;
    }
}

int main(int argc, char** argv) {
    require(argc > 1 && geteuid() == 0);
    require(sem_open(lockName, 0) == SEM_FAILED);
    int ready;
    daemonize(&ready);
    if (argc > 2 && atoi(argv[2]) > 0) {
        touchBallast(argv[2]);
    }
    require(sem_open(lockName, O_CREAT | O_EXCL, 0644, 0) != SEM_FAILED);
    (void)!write(ready, "", 1);
    (void)close(ready);
    findClient();
    makeTable();
    const int listener = makeListener();
    int isQuit = 0;
    while (!isQuit) {
        if (isReadable(listener, acceptSeconds)) {
            isQuit = serve(accept4(listener, NULL, NULL, SOCK_CLOEXEC));
        }
    }
    (void)shm_unlink(ZNORB_TABLE_NAME);
    (void)sem_unlink(lockName);
    end();
}
