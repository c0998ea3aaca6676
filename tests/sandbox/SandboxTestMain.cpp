#include "tests/sandbox/Sandbox.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

/// For tests that run the daemon or touch its names: they run in a sandbox, and are skipped, each with the
/// reason, where there can be none.
namespace {

using ZNORBTEST::SandboxOutcome;

int runTests(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}

/// Skips each test before its body, so that all of them are counted as skipped.
class Skipper : public testing::EmptyTestEventListener {
public:
    explicit Skipper(std::string reason) : m_reason(std::move(reason)) {}

    void OnTestStart(const testing::TestInfo&) override { GTEST_SKIP() << m_reason; }

private:
    const std::string m_reason;
};

int skipTests(int argc, char** argv, const std::string& reason) {
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new Skipper(reason)); // owned by the list
    return RUN_ALL_TESTS();
}

/// Whether no test is to be run but their list is asked for, or this is the child of a death test: GoogleTest
/// may start the program once more for that, from inside.
bool needsNoSandbox(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        for (const std::string flag : {"--gtest_list_tests", "--gtest_internal_run_death_test"}) {
            if (std::strncmp(argv[i], flag.c_str(), flag.size()) == 0) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    if (needsNoSandbox(argc, argv)) {
        return runTests(argc, argv);
    }
    const SandboxOutcome outcome = ZNORBTEST::runSandboxed([argc, argv]() { return runTests(argc, argv); });
    switch (outcome.kind) {
    case SandboxOutcome::Kind::Unavailable:
        return skipTests(argc, argv, "no sandbox: " + outcome.reason);
    case SandboxOutcome::Kind::Refused:
        (void)std::fprintf(stderr, "no sandbox: %s\n", outcome.reason.c_str());
        return EXIT_FAILURE;
    case SandboxOutcome::Kind::Ended:
        break;
    }
    ZNORBTEST::endLike(outcome.waitStatus);
}
