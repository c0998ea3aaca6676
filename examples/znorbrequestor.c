/*
 * A stand-in for the requester, and a tutorial for the authors of real ones: how a program asks the
 * running responder for a client. The web console's page does it through this program, which the
 * responder copies from its own directory into the console's at every start.
 *
 *     znorbrequestor [-wait SECONDS] [-reply SECONDS] REQUEST
 *
 * REQUEST is sent as it is: "GET|en" starts a client in English, "GET|en|30" one that ends by itself
 * after 30 seconds, "PRINT" lists the table in the responder's log, "QUIT" ends the responder and every
 * client. The reply is printed with a newline: the number of the client's entry for a GET, else "0".
 * (A GET that could not be served is answered "0" as well: a requester that must know looks into the
 * table, as shown in znorbclient.c.)
 *
 * Exit status: 0 with a reply, 1 without one, 2 for a wrong command line.
 */
/* For SOCK_CLOEXEC and SOCK_NONBLOCK: the C library's own switch. */
#define _GNU_SOURCE /* NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#include <errno.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static const char socketPath[] = "/var/run/znorb.socket";

enum {
    withReply = 0,
    withoutReply = 1,
    wrongUsage = 2,
    /* The responder takes a request from one receive of this many bytes and drops what goes beyond. */
    longestRequest = 1024,
    longestReply = 1024,
    longestWaitSeconds = 24 * 3600,
    /* The responder may be on its way up: it is worth trying again for a while. */
    defaultConnectSeconds = 5,
    /* It serves one connection after the other, and one that stays silent holds it for a minute; what
     * "QUIT" takes depends on the clients. */
    defaultReplySeconds = 120,
    retryMilliseconds = 100
};

struct options {
    long connectSeconds;
    long replySeconds;
    const char* request; /* NULL: the command line is wrong */
};

/* The whole of `text` as a number of seconds, or -1. */
static long secondsFrom(const char* text) {
    if (*text < '0' || *text > '9') { /* strtol would take spaces and signs */
        return -1;
    }
    char* end = NULL;
    errno = 0;
    const long number = strtol(text, &end, 10);
    return errno == 0 && *end == '\0' && number <= longestWaitSeconds ? number : -1;
}

static struct options parse(int argc, char** argv) {
    struct options options = {defaultConnectSeconds, defaultReplySeconds, NULL};
    int next = 1;
    while (next + 2 < argc) {
        long* seconds = NULL;
        if (strcmp(argv[next], "-wait") == 0) {
            seconds = &options.connectSeconds;
        } else if (strcmp(argv[next], "-reply") == 0) {
            seconds = &options.replySeconds;
        } else {
            return options;
        }
        *seconds = secondsFrom(argv[next + 1]);
        if (*seconds < 0) {
            return options;
        }
        next += 2;
    }
    if (next + 1 == argc && argv[next][0] != '-') {
        const size_t length = strlen(argv[next]);
        options.request = length > 0 && length <= longestRequest ? argv[next] : NULL;
    }
    return options;
}

/* Milliseconds of a clock that nobody sets. */
static long long now(void) {
    struct timespec time;
    (void)clock_gettime(CLOCK_MONOTONIC, &time); /* cannot fail for this clock */
    return (long long)time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

/* One attempt; a descriptor, or -1. */
static int connectOnce(void) {
    /* Non-blocking, because a blocking connect waits without bound while the responder's queue is full. */
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor == -1) {
        return -1;
    }
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    memcpy(address.sun_path, socketPath, sizeof socketPath);
    if (connect(descriptor, (const struct sockaddr*)&address, sizeof address) != 0) {
        (void)close(descriptor);
        return -1;
    }
    return descriptor;
}

/* Tries until `seconds` have passed, at least once; a descriptor, or -1. */
static int connectWithin(long seconds) {
    const long long until = now() + seconds * 1000LL;
    for (;;) {
        const int descriptor = connectOnce();
        if (descriptor != -1 || now() >= until) {
            return descriptor;
        }
        (void)poll(NULL, 0, retryMilliseconds);
    }
}

/* Reads until the responder closes the connection, as it does after its one reply: nothing else marks
 * the reply's end. Returns the bytes in `reply`; 0 stands for no reply. */
static size_t receiveReply(int descriptor, char* reply, size_t size, long seconds) {
    const long long until = now() + seconds * 1000LL;
    size_t length = 0;
    while (length < size) {
        const long long left = until - now();
        struct pollfd wanted = {descriptor, POLLIN, 0};
        const int ready = left > 0 ? poll(&wanted, 1, (int)left) : 0;
        if (ready == 0 || (ready < 0 && errno != EINTR)) {
            break;
        }
        const ssize_t count = recv(descriptor, reply + length, size - length, 0);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            break;
        }
        length += count > 0 ? (size_t)count : 0;
    }
    return length;
}

static int usage(void) {
    (void)fputs("usage: znorbrequestor [-wait SECONDS] [-reply SECONDS] REQUEST\n"
                "REQUEST has 1 to 1024 bytes: GET|<language>[|<seconds>], PRINT or QUIT\n",
                stderr);
    return wrongUsage;
}

static int fail(const char* what) {
    (void)fprintf(stderr, "znorbrequestor: %s\n", what);
    return withoutReply;
}

int main(int argc, char** argv) {
    const struct options options = parse(argc, argv);
    if (options.request == NULL) {
        return usage();
    }
    const int descriptor = connectWithin(options.connectSeconds);
    if (descriptor == -1) {
        return fail("the responder cannot be reached: is it running?");
    }
    /* One send: a request has neither length nor end, it is what the responder's one receive gets.
     * A fresh socket has room for it. MSG_NOSIGNAL, so that a responder that hangs up is an error here
     * and not a SIGPIPE. */
    const size_t length = strlen(options.request);
    if (send(descriptor, options.request, length, MSG_NOSIGNAL) != (ssize_t)length) {
        (void)close(descriptor);
        return fail("the request cannot be sent");
    }
    char reply[longestReply];
    const size_t received = receiveReply(descriptor, reply, sizeof reply, options.replySeconds);
    (void)close(descriptor);
    if (received == 0) {
        return fail("no reply");
    }
    (void)fwrite(reply, 1, received, stdout);
    (void)putchar('\n');
    /* What could not be written is not reported to anybody as read. */
    return fflush(stdout) == 0 && !ferror(stdout) ? withReply : fail("the reply cannot be printed");
}
