#include "responder/commands/StandardDescriptors.h"

#include "tests/support/DescriptorLimit.h"
#include "tests/support/ForkedChild.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

using namespace ZNORBRESPONDER;
using ZNORBTEST::SharedReport;

/// Where the descriptors 0 to 2 of a process lead, and how they are open.
struct Descriptors {
    bool isOpen[3];
    bool isNull[3];
    int access[3];
};

bool isNullDevice(const struct stat& status) {
    struct stat null = {};
    return stat("/dev/null", &null) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == null.st_rdev;
}

void find(Descriptors& found) {
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        struct stat status = {};
        found.isOpen[descriptor] = fstat(descriptor, &status) == 0;
        found.isNull[descriptor] = found.isOpen[descriptor] && isNullDevice(status);
        found.access[descriptor] = found.isOpen[descriptor] ? fcntl(descriptor, F_GETFL) & O_ACCMODE : -1;
    }
}

/// What the call makes of the standard descriptors, which are the ends of a pipe before, except for those
/// that are closed.
class StandardDescriptors : public testing::Test {
protected:
    void callWithout(const std::vector<int>& closed, const std::function<void()>& call) {
        ASSERT_EQ(ZNORBTEST::endOfForked([this, &closed, &call]() {
                      usePipe();
                      for (const int descriptor : closed) {
                          (void)close(descriptor);
                      }
                      const int lowest = ZNORBTEST::lowestFreeDescriptor();
                      call();
                      find(*found);
                      const bool isClean = !closed.empty() || ZNORBTEST::lowestFreeDescriptor() == lowest;
                      return isClean ? 0 : 1;
                  }),
                  ZNORBTEST::exitedWith(0));
    }

    void expectNull(int descriptor, int access) const {
        EXPECT_TRUE(found->isNull[descriptor]) << descriptor;
        EXPECT_EQ(found->access[descriptor], access) << descriptor;
    }

    void expectKept(int descriptor) const {
        EXPECT_TRUE(found->isOpen[descriptor]) << descriptor;
        EXPECT_FALSE(found->isNull[descriptor]) << descriptor;
    }

    const SharedReport<Descriptors> found;

private:
    static void usePipe() {
        int ends[2] = {-1, -1};
        (void)pipe(ends);
        (void)dup2(ends[0], STDIN_FILENO);
        (void)dup2(ends[1], STDOUT_FILENO);
        (void)dup2(ends[1], STDERR_FILENO);
    }
};

TEST_F(StandardDescriptors, MissingOnesAreFilledWithNullAndTheOthersStay) {
    const int usual[] = {O_RDONLY, O_WRONLY, O_WRONLY};
    for (const std::vector<int>& missing : std::vector<std::vector<int>>{{}, {1}, {0, 1, 2}}) {
        SCOPED_TRACE(missing.size());
        callWithout(missing, fillMissingDescriptors);
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            if (std::find(missing.begin(), missing.end(), descriptor) == missing.end()) {
                expectKept(descriptor);
            } else {
                expectNull(descriptor, usual[descriptor]);
            }
        }
    }
}

TEST_F(StandardDescriptors, OpenOneIsPointedToNullAndNothingElseIsLeftOpen) {
    callWithout({}, []() { pointToNull(STDIN_FILENO); });
    expectNull(0, O_RDONLY);
    expectKept(1);
    expectKept(2);
}

TEST_F(StandardDescriptors, WithoutAnotherDescriptorEachStaysAsItIs) {
    callWithout({2}, []() {
        const ZNORBTEST::DescriptorLimit none(0);
        pointToNull(STDIN_FILENO);
        fillMissingDescriptors();
    });
    expectKept(0);
    expectKept(1);
    EXPECT_FALSE(found->isOpen[2]);
}

} // namespace
