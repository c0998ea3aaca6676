#include "tests/support/ForkedChild.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZNORBTEST {
namespace {

pid_t forkFlushed() {
    (void)std::fflush(nullptr); // or the child, should it exit, would write it once more
    return fork();
}

/// An exception out of the body ends the child here, and never runs the rest of the tests in it.
[[noreturn]] void endWith(const std::function<int()>& body) noexcept {
    _exit(body());
}

} // namespace

ForkedChild::ForkedChild(const std::function<int()>& body) : m_pid(forkFlushed()) {
    if (m_pid == 0) {
        endWith(body);
    }
    EXPECT_NE(m_pid, -1) << std::strerror(errno);
}

ForkedChild::~ForkedChild() {
    if (m_pid > 0 && waitForEnd(Milliseconds(0)) == stillRunning()) {
        (void)kill(m_pid, SIGKILL);
        EXPECT_NE(waitForEnd(), stillRunning()) << "process " << m_pid;
    }
}

ProcessEnd ForkedChild::waitForEnd(Milliseconds bound) {
    if (m_pid > 0 && m_end == stillRunning()) {
        m_end = waitForEndOf(m_pid, bound);
    }
    return m_end;
}

ProcessEnd endOfForked(const std::function<int()>& body, Milliseconds bound) {
    return ForkedChild(body).waitForEnd(bound);
}

void expectEndOfForked(const ProcessEnd& expected, const std::function<int()>& body, const char* file,
                       int line) {
    const ProcessEnd end = endOfForked(body);
    if (end != expected) {
        ADD_FAILURE_AT(file, line) << "the process " << end << ", not " << expected;
    }
}

bool holdsInForked(const std::function<bool()>& condition) {
    return endOfForked([&condition]() { return condition() ? EXIT_SUCCESS : EXIT_FAILURE; }) ==
           exitedWith(EXIT_SUCCESS);
}

} // namespace ZNORBTEST
