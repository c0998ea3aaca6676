#include "foundation/synchronization/NonCopyable.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace {

class Owner : private Common::NonCopyable {
public:
    explicit Owner(bool& destroyed) : m_destroyed(&destroyed) {}
    ~Owner() override { *m_destroyed = true; }

private:
    bool* m_destroyed;
};

class OpenOwner : public Common::NonCopyable {
public:
    explicit OpenOwner(bool& destroyed) : m_owner(destroyed) {}

private:
    Owner m_owner;
};

} // namespace

TEST(NonCopyable, DerivedClassesCanBeNeitherCopiedNorMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<Owner>);
    EXPECT_FALSE(std::is_copy_assignable_v<Owner>);
    EXPECT_FALSE(std::is_move_constructible_v<Owner>);
    EXPECT_FALSE(std::is_move_assignable_v<Owner>);
}

TEST(NonCopyable, CannotBeCreatedByItself) {
    EXPECT_FALSE(std::is_default_constructible_v<Common::NonCopyable>);
}

TEST(NonCopyable, DestroysDerivedObjectsThroughItsDestructor) {
    bool destroyed = false;
    std::unique_ptr<Common::NonCopyable> owner = std::make_unique<OpenOwner>(destroyed);
    owner.reset();
    EXPECT_TRUE(destroyed);
}

TEST(NonCopyable, AddsNothingButTheVirtualTablePointer) {
    EXPECT_EQ(sizeof(Common::NonCopyable), sizeof(void*));
}
