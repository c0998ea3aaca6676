#include "responder/CodePages.h"

#include "tests/support/CodeMemory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

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

TEST(CodePages, ComeBackAsTheyWere) {
    const std::vector<std::string> words = {"a", "b"};
    for (int round = 0; round < 3; ++round) {
        releaseCode();
        EXPECT_EQ(words, (std::vector<std::string>{"a", "b"}));
    }
}

TEST(CodePages, GoWithoutTouchingErrorsOfTheCaller) {
    errno = 0;
    releaseCode();
    EXPECT_EQ(errno, 0);
}

} // namespace
