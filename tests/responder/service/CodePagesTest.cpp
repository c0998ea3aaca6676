#include "responder/service/CodePages.h"

#include "tests/support/CodeMemory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

extern "C" {
extern const char __executable_start; // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern const char etext;
}

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

TEST(CodePages, LeaveTheMemoryUntilTheyAreUsed) {
    const unsigned long before = residentCode(getpid());
    releaseCode();
    const unsigned long after = residentCode(getpid());
    EXPECT_GT(after, 0U); // what the count itself runs
    EXPECT_LT(after, before);
}

/// A sum over the machine code of this program.
std::uint64_t sumOfCode() {
    std::uint64_t sum = 0;
    for (const char* place = &__executable_start; place != &etext; ++place) {
        sum = sum * 31 + static_cast<unsigned char>(*place);
    }
    return sum;
}

TEST(CodePages, ComeBackAsTheyWere) {
    const std::uint64_t before = sumOfCode();
    releaseCode();
    EXPECT_EQ(sumOfCode(), before);
}

TEST(CodePages, GoWithoutTouchingErrorsOfTheCaller) {
    errno = 0;
    releaseCode();
    EXPECT_EQ(errno, 0);
}

} // namespace
