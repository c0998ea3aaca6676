#include "responder/commands/UserMessage.h"

#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Skipping.h"
#include "tests/support/SocketPair.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

using ZNORBRESPONDER::tellUser;
using ZNORBTEST::readFile;

class UserMessageTest : public testing::Test {
protected:
    ZNORBTEST::TemporaryFolder m_folder;
    const std::string m_path = m_folder / "output";
    const ZNORBTEST::Descriptor m_file{open(m_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
};

TEST_F(UserMessageTest, EachMessageIsFollowedByANewlineAndThereAtOnce) {
    std::string expected;
    for (const std::string& message :
         {std::string("The ZN Orbisan daemon has started."), std::string("two"), std::string(),
          std::string("100%s %n %d%%"), std::string(ZNORBRESPONDER::longestMessage, 'x')}) {
        tellUser(m_file.get(), message.c_str());
        expected += message + "\n";
        EXPECT_EQ(readFile(m_path), expected);
    }
}

TEST_F(UserMessageTest, LongerMessageIsCutAndStillEndsWithANewline) {
    const std::string longest(ZNORBRESPONDER::longestMessage, 'x');
    tellUser(m_file.get(), (longest + "beyond").c_str());
    EXPECT_EQ(readFile(m_path), longest + "\n");
}

TEST(UserMessage, MessageAndNewlineAreOnePiece) {
    const ZNORBTEST::SocketPair ends(SOCK_DGRAM);
    tellUser(ends.near(), "in one");
    char piece[16] = {};
    EXPECT_EQ(recv(ends.far(), piece, sizeof piece, MSG_DONTWAIT), 7);
    EXPECT_STREQ(piece, "in one\n");
}

TEST(UserMessage, RestOfAPieceThatIsNotTakenWholeFollowsUntilNothingIsTaken) {
    ZNORB_SKIP_IF(ZNORBTEST::underThreadSanitizer) << "write cannot be stood in for";
    std::string taken;
    std::size_t refused = 0;
    const ZNORBTEST::InPlaceOf<write> writes([&](int, const void* bytes, std::size_t length) {
        if (taken == "all\nhal") {
            return ++refused == 1 ? 0 : -1;
        }
        taken += *static_cast<const char*>(bytes);
        return length > 0 ? 1 : -1;
    });
    tellUser(STDOUT_FILENO, "all");
    EXPECT_EQ(taken, "all\n");
    tellUser(STDOUT_FILENO, "half");
    EXPECT_EQ(taken, "all\nhal");
    EXPECT_EQ(refused, 1U);
}

TEST(UserMessage, DescriptorThatCannotBeWrittenIsIgnored) {
    const ZNORBTEST::Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.isOpen());
    errno = 0;
    tellUser(full.get(), "nobody reads this");
    EXPECT_EQ(errno, ENOSPC) << "it was tried";
    tellUser(full.get(), "nor this");
}

TEST(UserMessage, ClosedDescriptorIsIgnored) {
    const int descriptor = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(close(descriptor), 0);
    errno = 0;
    tellUser(descriptor, "nobody reads this");
    EXPECT_EQ(errno, EBADF) << "it was tried";
}

TEST(UserMessage, MessageGoesToTheDescriptorThatIsNamed) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    tellUser(STDOUT_FILENO, "to the output");
    tellUser(STDERR_FILENO, "to the errors");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to the output\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the errors\n");
}

} // namespace
