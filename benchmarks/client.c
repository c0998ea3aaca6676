/*
 * The least client, installed as znorbclient for the benchmarks. With the language "stay" it registers a port
 * in its entry, answers one request to exit and ends; with any other it ends at once.
 */
#define _GNU_SOURCE

#include "znorb/shared_table.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

enum { languageWord = 2, indexWord = 5, requestSize = 1024, longestLife = 60 };

static void answerOneRequest(struct znorb_client_entry* entry) {
    static const char answer[] = "HTTP/1.0 200 OK\r\nContent-Length: 12\r\n\r\n{\"exit\": 1}\n";
    struct sockaddr_in address = {.sin_family = AF_INET};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    char request[requestSize];
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    /* Ports that clients of the last minute had must not run out. */
    const int isReused = 1;
    if (setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &isReused, sizeof isReused) != 0 ||
        bind(listener, (struct sockaddr*)&address, sizeof address) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, (struct sockaddr*)&address, &length) != 0) {
        return;
    }
    entry->port = ntohs(address.sin_port);
    const int connection = accept(listener, NULL, NULL);
    (void)!read(connection, request, sizeof request);
    (void)!write(connection, answer, sizeof answer - 1);
}

int main(int argc, char** argv) {
    if (argc <= indexWord || strcmp(argv[languageWord], "stay") != 0) {
        return 0;
    }
    (void)alarm(longestLife);
    const int object = shm_open(ZNORB_TABLE_NAME, O_RDWR, 0);
    struct znorb_shared_table* const table =
        mmap(NULL, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, object, 0);
    if (table == MAP_FAILED) {
        return 1;
    }
    answerOneRequest(&table->entries[atoi(argv[indexWord])]);
    return 0;
}
