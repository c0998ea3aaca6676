#include "responder/commands/UserMessage.h"

#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

using ZNORBRESPONDER::tellUser;
using ZNORBTEST::readFile;

/// A fully buffered stream to a file: what is not flushed is not in the file.
class UserMessageTest : public testing::Test {
protected:
    void SetUp() override {
        m_stream = std::fopen(m_path.c_str(), "we");
        ASSERT_NE(m_stream, nullptr);
        ASSERT_EQ(std::setvbuf(m_stream, nullptr, _IOFBF, 65536), 0);
    }
    void TearDown() override { (void)std::fclose(m_stream); }

    ZNORBTEST::TemporaryFolder m_folder;
    const std::string m_path = m_folder / "output";
    std::FILE* m_stream = nullptr;
};

TEST_F(UserMessageTest, MessageIsFollowedByANewlineAndThereAtOnce) {
    tellUser(m_stream, "The ZN Orbisan daemon has started.");
    EXPECT_EQ(readFile(m_path), "The ZN Orbisan daemon has started.\n");
}

TEST_F(UserMessageTest, MessagesFollowEachOtherInOrder) {
    tellUser(m_stream, "one");
    tellUser(m_stream, "two");
    EXPECT_EQ(readFile(m_path), "one\ntwo\n");
}

TEST_F(UserMessageTest, MessageFollowsWhatTheStreamStillHeld) {
    (void)std::fputs("before ", m_stream);
    tellUser(m_stream, "message");
    EXPECT_EQ(readFile(m_path), "before message\n");
}

TEST_F(UserMessageTest, EmptyMessageIsANewline) {
    tellUser(m_stream, "");
    EXPECT_EQ(readFile(m_path), "\n");
}

TEST_F(UserMessageTest, MessageIsNoFormat) {
    tellUser(m_stream, "100%s %n %d%%");
    EXPECT_EQ(readFile(m_path), "100%s %n %d%%\n");
}

TEST_F(UserMessageTest, LongMessageIsWrittenWhole) {
    const std::string message(200000, 'x');
    tellUser(m_stream, message.c_str());
    EXPECT_EQ(readFile(m_path), message + "\n");
}

TEST(UserMessage, StreamThatCannotBeWrittenIsIgnored) {
    std::FILE* const full = std::fopen("/dev/full", "we");
    ASSERT_NE(full, nullptr);
    tellUser(full, "nobody reads this");
    EXPECT_NE(std::ferror(full), 0) << "it was tried";
    tellUser(full, "nor this");
    (void)std::fclose(full);
}

TEST(UserMessage, StreamOfAClosedDescriptorIsIgnored) {
    std::FILE* const stream = std::fopen("/dev/null", "we");
    ASSERT_NE(stream, nullptr);
    const int descriptor = fileno(stream);
    const int kept = dup(descriptor);
    ASSERT_EQ(close(descriptor), 0);
    tellUser(stream, "nobody reads this");
    EXPECT_NE(std::ferror(stream), 0) << "it was tried";
    ASSERT_EQ(dup2(kept, descriptor), descriptor);
    (void)close(kept);
    (void)std::fclose(stream);
}

TEST(UserMessage, MessageGoesToTheStreamThatIsNamed) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    tellUser(stdout, "to the output");
    tellUser(stderr, "to the errors");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to the output\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the errors\n");
}

} // namespace
