#include <gmock/gmock.h>

/// For tests that touch none of the daemon's names.
int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
