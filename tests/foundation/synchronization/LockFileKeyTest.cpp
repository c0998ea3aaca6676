#include "foundation/synchronization/LockFileKey.h"

#include "tests/support/Allocations.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TemporaryFolder.h"

#include <sys/ipc.h>
#include <unistd.h>

#include <cstdlib>

using Common::Synchronization::lockFileKey;
using ZNORBTEST::holdsInForked;

namespace {

constexpr const char* variable = "MOLTE_LOCK_FILES_DIR";

/// The directory is read once per process, so each test asks for keys in a child process of its own,
/// about files in a folder of its own.
class LockFileKey : public testing::Test {
protected:
    [[nodiscard]] const std::string& folder() const { return m_folder.path(); }

    /// Makes the file; returns the key that belongs to it.
    [[nodiscard]] key_t makeFile(const std::string& name) const {
        ZNORBTEST::writeFile(m_folder / name, "x");
        const key_t key = ftok((m_folder / name).c_str(), 0);
        EXPECT_NE(key, -1);
        return key;
    }

    static bool setVariable(const std::string& value) { return setenv(variable, value.c_str(), 1) == 0; }

private:
    ZNORBTEST::TemporaryFolder m_folder;
};

} // namespace

TEST_F(LockFileKey, IsMadeFromTheFileBehindTheDirectoryWithProjectZeroAndNoSeparator) {
    const key_t expected = makeFile("a.lock");
    struct Case {
        std::string directory;
        std::string name;
        key_t key;
    };
    const Case cases[] = {
        {folder() + "/", "a.lock", expected},
        {folder(), "a.lock", -1},
        {folder(), "/a.lock", expected},
        {"", folder() + "/a.lock", expected},
        {folder() + "/", std::string(300, 'n'), -1},
        {folder() + "/", std::string(1000000, 'n'), -1},
    };
    for (const Case& row : cases) {
        EXPECT_TRUE(holdsInForked([&] {
            return setVariable(row.directory) && lockFileKey(row.name) == row.key;
        })) << row.directory
            << ' ' << row.name.size();
    }
}

TEST_F(LockFileKey, StartsThePathWithNullInParenthesesWhenTheVariableIsUnset) {
    (void)makeFile("a.lock");
    EXPECT_TRUE(holdsInForked([&] {
        return unsetenv(variable) == 0 && chdir(folder().c_str()) == 0 && lockFileKey("a.lock") == -1;
    }));
    const key_t expected = makeFile("(null)a.lock");
    EXPECT_TRUE(holdsInForked([&] {
        return unsetenv(variable) == 0 && chdir(folder().c_str()) == 0 && lockFileKey("a.lock") == expected;
    }));
}

TEST_F(LockFileKey, ReadsTheVariableOncePerProcess) {
    const key_t expected = makeFile("a.lock");
    EXPECT_TRUE(holdsInForked([&] {
        return setVariable(folder() + "/") && lockFileKey("a.lock") == expected &&
               setVariable("/nonexistent/") && lockFileKey("a.lock") == expected;
    }));
}

TEST_F(LockFileKey, IsMinusOneWithoutMemoryAndTheNextCallWorks) {
    ZNORB_SKIP_IF(!ZNORBTEST::allocationsAreObserved) << "allocations cannot be made to fail here";
    const key_t expected = makeFile("a.lock");
    EXPECT_TRUE(holdsInForked([&] {
        if (!setVariable(folder() + "/")) {
            return false;
        }
        const std::string name = "a.lock";
        for (long succeeding = 0; succeeding < 2; ++succeeding) {
            const ZNORBTEST::FailingAllocation failure(succeeding);
            if (lockFileKey(name) != -1) {
                return false;
            }
        }
        return lockFileKey(name) == expected;
    }));
}
