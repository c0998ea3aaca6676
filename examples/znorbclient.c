/*
 * A stand-in for the client program, small enough to read in one sitting, and a tutorial for the authors
 * of the real one: how a client finds its entry in the responder's table, how it makes itself known
 * there, and how it leaves.
 *
 * What the responder does: for each "GET|<language>|<time-out>" request it claims an entry N of the
 * shared table and runs
 *
 *     <its own directory>/znorbclient [-v] -lang <language> -wbx -index <N> [-timeout <time-out>]
 *
 * "-v" only in test mode; "-timeout" and its value only when the request named one. It does not wait
 * for the client, never looks at its exit status and never cleans up behind it.
 *
 * What a client finds when it starts:
 *   - standard input, output and error on /dev/null (in test mode: the tester's terminal). A message
 *     written there is lost: a real client opens a log file of its own;
 *   - SIGCHLD ignored. Ignored signals survive exec, and with this one waitpid() cannot collect a
 *     child's status: a client that runs programs of its own sets it back to SIG_DFL first;
 *   - umask 0 (in test mode the tester's). Files would be made writable by everybody: set one before the
 *     first open;
 *   - the responder's directory as its working directory, and root as its user.
 *
 * What it owes the others: fill in the entry (identifier first, then port), answer
 * "POST /ExitApplication.json" and end, and free the entry at the end, whatever the end was.
 */
/* For ppoll() and accept4(): the C library's own switch. */
#define _GNU_SOURCE /* NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#include "znorb/shared_table.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum {
    defaultLifeSeconds = 600,
    longestLifeSeconds = 366 * 24 * 3600,
    /* One connection may hold the client for this long and no longer: it is served alone, and the next
     * one may be the request to exit. */
    connectionMilliseconds = 2000,
    /* How long to wait, after the answer, for the other side to close. */
    lingerMilliseconds = 1000,
    /* What is longer takes several waits: milliseconds of a whole life are more than some machines' long
       holds. */
    longestWait = 24 * 3600 * 1000,
    longestRequest = 8192
};

struct options {
    bool verbose;
    const char* language;
    long index; /* -1: not given, or no entry of the table */
    long lifeSeconds;
};

/* ---- the command line ------------------------------------------------------------------------- */

/* The whole of `text` as a decimal number from `lowest` to `highest`, or `otherwise`. */
static long numberOr(const char* text, long lowest, long highest, long otherwise) {
    if (*text < '0' || *text > '9') { /* strtol would take spaces and signs */
        return otherwise;
    }
    char* end = NULL;
    errno = 0;
    const long number = strtol(text, &end, 10);
    const bool whole = errno == 0 && *end == '\0';
    return whole && number >= lowest && number <= highest ? number : otherwise;
}

/* Words that this client does not know are skipped, so that an older client runs under a newer
 * responder. A word that lacks its value stands for nothing. */
static struct options parse(int argc, char** argv) {
    struct options options = {false, "", -1, defaultLifeSeconds};
    for (int i = 1; i < argc && argv[i] != NULL; ++i) {
        const char* value = argv[i + 1]; /* NULL after the last word */
        if (strcmp(argv[i], "-v") == 0) {
            options.verbose = true;
        } else if (strcmp(argv[i], "-lang") == 0 && value != NULL) {
            options.language = value; /* may be empty: the language is passed on as it was asked for */
            ++i;
        } else if (strcmp(argv[i], "-index") == 0 && value != NULL) {
            options.index = numberOr(value, 0, ZNORB_TABLE_CAPACITY - 1, -1);
            ++i;
        } else if (strcmp(argv[i], "-timeout") == 0 && value != NULL) {
            /* Whoever may connect to the responder's socket chose this text. */
            options.lifeSeconds = numberOr(value, 1, longestLifeSeconds, defaultLifeSeconds);
            ++i;
        }
    }
    return options;
}

/* ---- the table -------------------------------------------------------------------------------- */

/* Maps the responder's table; NULL when there is none or it is too small to be one. The mapping lasts
 * until the process ends. */
static struct znorb_shared_table* openTable(void) {
    /* No O_CREAT: without a responder there is nothing to be a client of. */
    const int descriptor = shm_open(ZNORB_TABLE_NAME, O_RDWR, 0);
    if (descriptor == -1) {
        return NULL;
    }
    void* address = MAP_FAILED;
    struct stat status;
    if (fstat(descriptor, &status) == 0 && status.st_size >= ZNORB_TABLE_SIZE) {
        address = mmap(NULL, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    }
    (void)close(descriptor); /* the mapping stays */
    return address == MAP_FAILED ? NULL : address;
}

/* The identifier goes first, the port last: until the port is there nobody takes the entry for filled
 * in, and the release store keeps the two in this order for whoever reads them on another processor. */
static void fillIn(struct znorb_client_entry* entry, const char* language, uint16_t port) {
    /* snprintf bounds the text and ends it: a language may be longer than the field. The last byte of
     * the field is written only here, and stays zero. */
    char identifier[ZNORB_IDENTIFIER_SIZE] = {0};
    (void)snprintf(identifier, sizeof identifier, "znorbclient-%ld %s", (long)getpid(), language);
    /* It ends up on a terminal, and any local user chose the language: no control characters. */
    for (char* character = identifier; *character != '\0'; ++character) {
        if (iscntrl((unsigned char)*character)) {
            *character = '?';
        }
    }
    memcpy(entry->identifier, identifier, sizeof identifier);
    __atomic_store_n(&entry->port, port, __ATOMIC_RELEASE);
}

/* After this store the responder may give the entry to another client: nothing is read or written in it
 * from here on. Nothing else needs tidying, a claim zeroes the rest. */
static void freeEntry(struct znorb_client_entry* entry) {
    __atomic_store_n(&entry->in_use, 0, __ATOMIC_RELEASE);
}

/* ---- time and signals ------------------------------------------------------------------------- */

/* Milliseconds of a clock that nobody sets. */
static long long now(void) {
    struct timespec time;
    (void)clock_gettime(CLOCK_MONOTONIC, &time); /* cannot fail for this clock */
    return (long long)time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

static volatile sig_atomic_t askedToEnd = 0;

static void noteSignal(int number) {
    (void)number;
    askedToEnd = 1;
}

/* A client that is ended by a signal has to free its entry as well. The signals stay blocked but for the
 * waits, where `duringWaits` lets them in: so they cannot slip in between a look at askedToEnd and the
 * wait that follows. */
static void catchSignals(sigset_t* duringWaits) {
    static const int numbers[] = {SIGTERM, SIGINT, SIGHUP};
    const struct sigaction action = {.sa_handler = noteSignal};
    sigset_t blocked;
    (void)sigemptyset(&blocked);
    for (size_t i = 0; i < sizeof numbers / sizeof numbers[0]; ++i) {
        (void)sigaction(numbers[i], &action, NULL);
        (void)sigaddset(&blocked, numbers[i]);
    }
    (void)sigprocmask(SIG_BLOCK, &blocked, duringWaits);
    for (size_t i = 0; i < sizeof numbers / sizeof numbers[0]; ++i) {
        (void)sigdelset(duringWaits, numbers[i]); /* even if they were blocked when we came */
    }
}

/* Waits until the descriptor is ready for `events`; false when `until` has passed, or on a signal. */
static bool waitFor(int descriptor, short events, long long until, const sigset_t* duringWaits) {
    for (;;) {
        const long long left = until - now();
        if (askedToEnd || left <= 0) {
            return false;
        }
        const long milliseconds = left < longestWait ? (long)left : longestWait;
        struct pollfd wanted = {descriptor, events, 0};
        const struct timespec bound = {milliseconds / 1000, (milliseconds % 1000) * 1000000};
        const int ready = ppoll(&wanted, 1, &bound, duringWaits);
        if (ready > 0) {
            return true; /* an error or hang-up counts as ready: the next call on it tells */
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
}

/* ---- HTTP ------------------------------------------------------------------------------------- */

/* Listens on 127.0.0.1, where only this machine gets through, at a port of the kernel's choice: several
 * clients run at a time. Returns the descriptor, or -1. */
static int openListener(uint16_t* port) {
    /* Close-on-exec, or a program that the client runs would keep the port open. Non-blocking, because a
     * connection may be gone between poll and accept. */
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener == -1) {
        return -1;
    }
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    socklen_t length = sizeof address;
    if (bind(listener, (const struct sockaddr*)&address, sizeof address) != 0 || listen(listener, 16) != 0 ||
        getsockname(listener, (struct sockaddr*)&address, &length) != 0) {
        (void)close(listener);
        return -1;
    }
    *port = ntohs(address.sin_port); /* the table holds it in host byte order */
    return listener;
}

/* Receives up to the empty line that ends the headers. False for a peer that is too slow, sends more
 * than longestRequest, or goes away. `request` becomes text, ended by a zero byte. */
static bool receiveHead(int connection, char* request, long long until, const sigset_t* duringWaits) {
    size_t length = 0;
    while (length < longestRequest && waitFor(connection, POLLIN, until, duringWaits)) {
        const ssize_t count = recv(connection, request + length, longestRequest - length, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        length += count > 0 ? (size_t)count : 0;
        request[length] = '\0';
        if (strstr(request, "\r\n\r\n") != NULL) {
            return true;
        }
    }
    return false;
}

/* The responder reads the status line and all headers from its first receive, so they leave in one send,
 * together with the body. It then waits for as many bytes as Content-Length says, with great patience:
 * the number must be right. (It reads a length of one digit as none at all, which is why the bodies
 * here have ten bytes or more.) */
static bool sendResponse(int connection, const char* status, const char* body, long long until,
                         const sigset_t* duringWaits) {
    char response[512];
    const int length =
        snprintf(response, sizeof response,
                 "HTTP/1.0 %s\r\nContent-Type: application/json\r\nContent-Length: %zu\r\n\r\n%s", status,
                 strlen(body), body);
    if (length < 0 || (size_t)length >= sizeof response) {
        return false;
    }
    size_t sent = 0;
    while (sent < (size_t)length) {
        /* MSG_NOSIGNAL: a peer that hangs up must not end the client by SIGPIPE. */
        const ssize_t count =
            send(connection, response + sent, (size_t)length - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        sent += count > 0 ? (size_t)count : 0;
        if (sent < (size_t)length && !waitFor(connection, POLLOUT, until, duringWaits)) {
            return false;
        }
    }
    return true;
}

/* To be done before a connection with an answer on its way is closed: says that nothing follows, then reads
 * away what the peer still sends, within bounds. A socket that is closed with unread bytes is reset, and the
 * reset may overtake the answer. */
static void hangUp(int connection, const sigset_t* duringWaits) {
    char ignored[1024];
    const long long until = now() + lingerMilliseconds;
    (void)shutdown(connection, SHUT_WR);
    for (int reads = 0; reads < 64 && waitFor(connection, POLLIN, until, duringWaits); ++reads) {
        const ssize_t count = recv(connection, ignored, sizeof ignored, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
}

/* Serves one connection: one request, one response. True when it was the request to exit. */
static bool serve(int connection, long long endOfLife, const sigset_t* duringWaits) {
    static const char exitRequest[] = "POST /ExitApplication.json HTTP/1.";
    char request[longestRequest + 1];
    long long until = now() + connectionMilliseconds;
    until = until < endOfLife ? until : endOfLife;
    if (!receiveHead(connection, request, until, duringWaits)) {
        (void)close(connection);
        return false;
    }
    const bool exitRequested = strncmp(request, exitRequest, sizeof exitRequest - 1) == 0;
    const char* status = exitRequested ? "200 OK" : "404 Not Found";
    const char* body = exitRequested ? "{\"result\":\"exiting\"}\n" : "{\"result\":\"not found\"}\n";
    if (sendResponse(connection, status, body, until, duringWaits)) {
        hangUp(connection, duringWaits);
    }
    (void)close(connection);
    return exitRequested; /* even if the answer did not get through */
}

/* Returns when the client was asked to exit, by request (true) or by signal, or its time is up. */
static bool serveUntilTheEnd(int listener, long lifeSeconds, const sigset_t* duringWaits) {
    const long long endOfLife = now() + lifeSeconds * 1000LL;
    bool exitRequested = false;
    while (!exitRequested && waitFor(listener, POLLIN, endOfLife, duringWaits)) {
        const int connection = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
        if (connection != -1) {
            exitRequested = serve(connection, endOfLife, duringWaits);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            /* The connection stays in the queue and poll would report it again at once. */
            (void)poll(NULL, 0, 100);
        }
    }
    return exitRequested;
}

/* ---- the life of a client --------------------------------------------------------------------- */

static int fail(const char* what) {
    (void)fprintf(stderr, "znorbclient: %s\n", what);
    return EXIT_FAILURE;
}

int main(int argc, char** argv) {
    (void)umask(022);               /* it was 0 */
    (void)signal(SIGCHLD, SIG_DFL); /* it was ignored */

    sigset_t duringWaits;
    catchSignals(&duringWaits); /* before anything that a signal must not leave half done */

    const struct options options = parse(argc, argv);
    if (options.index < 0) {
        return fail("no entry of the table is named by -index");
    }
    struct znorb_shared_table* table = openTable();
    if (table == NULL) {
        return fail("the table " ZNORB_TABLE_NAME " cannot be opened: is the responder running?");
    }
    struct znorb_client_entry* entry = &table->entries[options.index];
    if (__atomic_load_n(&entry->in_use, __ATOMIC_ACQUIRE) == 0) {
        return fail("the entry named by -index was not claimed for a client");
    }

    uint16_t port = 0;
    const int listener = openListener(&port);
    if (listener == -1) {
        freeEntry(entry); /* from here on the entry is ours, so every end frees it */
        return fail("no port of 127.0.0.1 can be opened");
    }
    fillIn(entry, options.language, port);
    if (options.verbose) {
        (void)fprintf(stderr, "znorbclient: entry %ld, port %u\n", options.index, (unsigned)port);
    }

    const bool exitRequested = serveUntilTheEnd(listener, options.lifeSeconds, &duringWaits);
    if (options.verbose && exitRequested) {
        (void)fprintf(stderr, "znorbclient: entry %ld, asked to exit over HTTP\n", options.index);
    }

    /* Close first: while the entry is in use its port must be this client's or nobody's. */
    (void)close(listener);
    freeEntry(entry);
    return EXIT_SUCCESS;
}
