#include "common/processes/SynchronousProcess.h"
#include "common/sockets/ClientSocket.h"
#include "common/threads/Threadable.h"
#include "tests/support/Layout.h"

using namespace ORBCOMMON;
using ZNORBTEST::slotOf;

TEST(VirtualTables, OfThreadsAndSocketsBeginWithTheDestructorAndKeepTheirOrder) {
    EXPECT_EQ(slotOf(&Threadable::run), 2U);
    EXPECT_EQ(slotOf(&Threadable::finish), 3U);
    EXPECT_EQ(slotOf(&SynchronousProcess::call), 4U);
    EXPECT_EQ(slotOf(&ClientSocket::close), 2U);
}
