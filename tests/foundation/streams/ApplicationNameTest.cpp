#include "foundation/streams/ApplicationName.h"

#include <gtest/gtest.h>

TEST(ApplicationName, DefaultIsApplicationExe) {
    EXPECT_STREQ(Common::defaultApplicationName, "application.exe");
}
