#include "foundation/streams/InputStream.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

using Common::InputStream;

namespace {

/// Answers every read with the read's name.
class NamingStream : public InputStream {
public:
    [[nodiscard]] bool isOpen() const override { return true; }
    bool isEof() override { return false; }
    void getCharacter(std::string& out) override { out = "character"; }
    void getLine(std::string& out) override { out = "line"; }
    void getAll(std::string& out) override { out = "all"; }
};

void readTwice(InputStream& stream, std::string& out) {
    std::string part;
    stream.getLine(part);
    stream.getCharacter(out);
    out = part + "+" + out;
}

} // namespace

TEST(InputStream, ReadsEverythingOrWithTheReaderThatWasSet) {
    NamingStream stream;
    std::string out;
    stream.read(out);
    EXPECT_EQ(out, "all");
    const std::pair<void (*)(InputStream&, std::string&), std::string> readers[] = {
        {InputStream::readLine, "line"},
        {InputStream::readCharacter, "character"},
        {InputStream::readBuffer, "all"},
    };
    for (const auto& [reader, name] : readers) {
        stream.setReader(reader).read(out);
        EXPECT_EQ(out, name);
        out.clear();
        reader(stream, out);
        EXPECT_EQ(out, name);
    }
}

TEST(InputStream, KeepsItsReaderFromReadToRead) {
    NamingStream stream;
    stream.setReader(&InputStream::readLine);
    std::string first;
    std::string second;
    stream.read(first).read(second);
    EXPECT_EQ(first, "line");
    EXPECT_EQ(second, "line");
}

TEST(InputStream, TakesAReaderOfTheCallersOwnAndReturnsItselfSoThatCallsChain) {
    NamingStream stream;
    std::string out;
    EXPECT_EQ(&stream.setReader(readTwice), &stream);
    EXPECT_EQ(&stream.read(out), &stream);
    EXPECT_EQ(out, "line+character");
}

TEST(InputStream, IsAbstractAndNeverCopied) {
    EXPECT_TRUE(std::is_abstract_v<InputStream>);
    EXPECT_FALSE(std::is_copy_constructible_v<NamingStream>);
    EXPECT_FALSE(std::is_copy_assignable_v<NamingStream>);
}
