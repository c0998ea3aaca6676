/* A block lost, a read behind its end and a race: a tool that finds nothing here proves nothing. */
#include <pthread.h>
#include <stdlib.h>

static int counter;

static void* count(void* unused) {
    ++counter;
    return unused;
}

int main(void) {
    pthread_t thread;
    volatile int* block = malloc(sizeof *block);
    if (pthread_create(&thread, NULL, count, NULL) != 0 || block == NULL) {
        return 2;
    }
    ++counter;
    return pthread_join(thread, NULL) + block[1] == counter;
}
