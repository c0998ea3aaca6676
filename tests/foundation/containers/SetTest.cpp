#include "foundation/containers/Set.h"

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

// What sets have in common with maps is in KeyedContainersTest.cpp.

namespace {

using TextSet = Common::set<std::string>;

class ObservedSet : public TextSet {
public:
    explicit ObservedSet(bool& destroyed) : m_destroyed(&destroyed) {}
    ObservedSet(const ObservedSet&) = delete;
    ObservedSet& operator=(const ObservedSet&) = delete;
    ~ObservedSet() override { *m_destroyed = true; }

private:
    bool* m_destroyed;
};

} // namespace

TEST(Set, IsNotConvertibleButDestroysDerivedObjects) {
    EXPECT_FALSE((std::is_base_of_v<Common::Convertible, TextSet>));
    bool destroyed = false;
    std::unique_ptr<TextSet> keys = std::make_unique<ObservedSet>(destroyed);
    keys.reset();
    EXPECT_TRUE(destroyed);
}

TEST(Set, IteratorIsASetIterator) {
    using Expected = Common::SetIterator<std::string, std::string&, std::string*>;
    EXPECT_TRUE((std::is_same_v<TextSet::iterator, Expected>));
    EXPECT_FALSE((std::is_same_v<Expected, Common::ListIterator<std::string, std::string&, std::string*>>))
        << "a type of its own";
    EXPECT_TRUE((std::is_same_v<decltype(++std::declval<Expected&>()), Expected&>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<Expected&>()++), Expected>));
    EXPECT_TRUE(std::forward_iterator<Expected>);
    EXPECT_TRUE((std::is_convertible_v<Expected, TextSet::const_iterator>));
    EXPECT_FALSE((std::is_convertible_v<TextSet::const_iterator, Expected>));
    EXPECT_TRUE((std::is_same_v<decltype(*TextSet::const_iterator()), const std::string&>));
}
