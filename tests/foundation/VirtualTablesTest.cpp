#include "foundation/containers/Convertible.h"
#include "foundation/streams/DataBuffer.h"
#include "foundation/streams/InputStream.h"
#include "foundation/streams/InputStreamFromBuffer.h"
#include "foundation/streams/OutputStream.h"
#include "foundation/streams/OutputStreamToBuffer.h"
#include "tests/support/Layout.h"

using namespace Common;
using ZNORBTEST::slotOf;

TEST(VirtualTables, OfStreamsBeginWithTheDestructorAndKeepTheirOrder) {
    EXPECT_EQ(slotOf(&OutputStream::write), 2U);
    EXPECT_EQ(slotOf(&OutputStreamToBuffer::write), 2U);
    EXPECT_EQ(slotOf(&OutputStreamToBuffer::flush), 3U);
    EXPECT_EQ(slotOf(&DataBuffer::flush), 2U);
    EXPECT_EQ(slotOf(&InputStream::isOpen), 2U);
    EXPECT_EQ(slotOf(&InputStream::isEof), 3U);
    EXPECT_EQ(slotOf(&InputStream::getCharacter), 4U);
    EXPECT_EQ(slotOf(&InputStream::getLine), 5U);
    EXPECT_EQ(slotOf(&InputStream::getAll), 6U);
    EXPECT_EQ(slotOf(&InputStreamFromBuffer::isOpen), 2U);
    EXPECT_EQ(slotOf(&InputStreamFromBuffer::isEof), 3U);
    EXPECT_EQ(slotOf(&InputStreamFromBuffer::getCharacter), 4U);
    EXPECT_EQ(slotOf(&InputStreamFromBuffer::getLine), 5U);
    EXPECT_EQ(slotOf(&InputStreamFromBuffer::getAll), 6U);
}

TEST(VirtualTables, OfContainersBeginWithTheDestructor) {
    EXPECT_EQ(slotOf(&Convertible::toString), 2U);
}
