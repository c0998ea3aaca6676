#include "foundation/containers/Convertible.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class Named : public Common::Convertible {
public:
    explicit Named(bool& destroyed) : m_destroyed(&destroyed) {}
    Named(const Named&) = delete;
    Named& operator=(const Named&) = delete;
    ~Named() override { *m_destroyed = true; }

    [[nodiscard]] std::string toString() const override { return "named"; }

private:
    bool* m_destroyed;
};

} // namespace

TEST(Convertible, TextIsEmptyUnlessOverridden) {
    EXPECT_EQ(Common::Convertible().toString(), "");
}

TEST(Convertible, DerivedObjectsTellTheirTextAndAreDestroyedThroughTheRoot) {
    bool destroyed = false;
    std::unique_ptr<Common::Convertible> root = std::make_unique<Named>(destroyed);
    EXPECT_EQ(root->toString(), "named");
    root.reset();
    EXPECT_TRUE(destroyed);
}
