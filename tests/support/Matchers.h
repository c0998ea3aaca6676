#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ZNORBTEST {

// GoogleMock's matchers, by the names that read as a sentence in EXPECT_THAT.
using testing::_;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::Field;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::Truly;
using testing::UnorderedElementsAreArray;

} // namespace ZNORBTEST
