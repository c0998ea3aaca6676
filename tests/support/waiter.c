/* A program for tests that look at what a launched process was given: it changes nothing and waits. */
#include <unistd.h>

int main(void) {
    for (;;) {
        (void)pause();
    }
}
