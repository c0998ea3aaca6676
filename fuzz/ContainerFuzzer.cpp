#include "foundation/containers/List.h"
#include "foundation/containers/Map.h"
#include "foundation/containers/Set.h"
#include "foundation/containers/SharedPtr.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

using namespace ZNORBFUZZ;

namespace {

/// Counts its instances, and can be copied but not compared.
class Counted {
public:
    explicit Counted(unsigned value) : m_value(value) { ++s_alive; }
    Counted(const Counted& other) : m_value(other.m_value) { ++s_alive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --s_alive; }

    [[nodiscard]] unsigned value() const { return m_value; }
    static unsigned alive() { return s_alive; }

private:
    unsigned m_value;
    static unsigned s_alive;
};

unsigned Counted::s_alive = 0;

using Values = Common::list<Common::shared_ptr<Counted>>;
using ModelValues = std::list<std::shared_ptr<unsigned>>;

/// A list of shared objects and its model.
struct Lists {
    void apply(unsigned operation, unsigned value) {
        switch (operation) {
        case 0:
            values.append(Common::shared_ptr<Counted>(new Counted(value)));
            model.push_back(std::make_shared<unsigned>(value));
            break;
        case 1:
            values.removeFirst();
            if (!model.empty()) {
                model.pop_front();
            }
            break;
        case 2:
            insert(value);
            break;
        case 3:
            if (!model.empty()) { // a value of its own
                values.append(values.front());
                model.push_back(model.front());
            }
            break;
        default:
            values.clear();
            model.clear();
        }
    }

    void insert(unsigned value) {
        const std::size_t place = value % (model.size() + 1);
        auto before = values.begin();
        for (std::size_t i = 0; i < place; ++i) {
            ++before;
        }
        const auto inserted = values.insertBefore(before, Common::shared_ptr<Counted>(new Counted(value)));
        requireEqual((*inserted)->value(), value, "the value at the place that was returned");
        model.insert(std::next(model.begin(), static_cast<long>(place)), std::make_shared<unsigned>(value));
    }

    void check() const {
        requireEqual(values.size(), model.size(), "size of a list");
        requireEqual(values.empty(), model.empty(), "whether a list is empty");
        require(std::equal(values.begin(), values.end(), model.begin(), model.end(),
                           [](const auto& left, const auto& right) { return left->value() == *right; }),
                "the values of a list, in their order");
        require(model.empty() ||
                    (values.front()->value() == *model.front() && values.last()->value() == *model.back()),
                "the first and the last value of a list");
    }

    Values values;
    ModelValues model;
};

/// A map of texts and its model.
struct Maps {
    void apply(unsigned operation, const std::string& key, const std::string& value) {
        if (operation == 0) {
            const auto result = map.insert(key, value);
            requireEqual(result.second, !model.contains(key), "whether the key is new to the map");
            model[key] = value;
            require(result.first->first == key && result.first->second == value, "the entry returned");
        } else if (operation == 1) {
            const auto& readOnly = map;
            const auto found = map.find(key);
            const auto expected = model.find(key);
            requireEqual(found == map.end(), expected == model.end(), "whether a key is found");
            require(readOnly.find(key) == found, "both kinds of find");
            require(expected == model.end() || found->second == expected->second, "the value found");
        } else {
            map.clear();
            model.clear();
        }
    }

    void check() const {
        requireEqual(map.size(), model.size(), "size of a map");
        require(std::equal(map.begin(), map.end(), model.begin(), model.end(),
                           [](const auto& left, const auto& right) {
                               return left.first == right.first && left.second == right.second;
                           }),
                "the entries of a map, in their order");
    }

    Common::map<std::string, std::string> map;
    std::map<std::string, std::string> model;
};

/// A set of texts and its model.
struct Sets {
    void apply(unsigned operation, const std::string& key) {
        if (operation == 0) {
            const auto result = set.insert(key);
            requireEqual(result.second, model.insert(key).second, "whether the key is new to the set");
            require(*result.first == key, "the place returned");
        } else if (operation == 1) {
            requireEqual(set.find(key) == set.end(), !model.contains(key), "whether a key is found");
        } else {
            set.clear();
            model.clear();
        }
    }

    void check() const {
        requireEqual(set.size(), model.size(), "size of a set");
        require(std::equal(set.begin(), set.end(), model.begin(), model.end()), "the keys of a set");
    }

    Common::set<std::string> set;
    std::set<std::string> model;
};

/// Two of a kind, so that they can be copied, moved and exchanged.
template <typename Kind>
void transfer(unsigned operation, Kind (&two)[2], unsigned from) {
    Kind& source = two[from];
    Kind& target = two[1 - from];
    switch (operation) {
    case 0:
        target = source;
        break;
    case 1:
        target = std::move(source);
        source = Kind(); // what has been moved from may be assigned to
        break;
    case 2:
        target = Kind(source);
        break;
    default: {
        Kind& same = target;
        target = same;
    }
    }
}

struct Scene {
    void apply(Input& input) {
        const unsigned operation = input.byte();
        const unsigned which = operation & 1U;
        const unsigned choice = (operation >> 4U) % 5;
        switch ((operation >> 1U) % 6) {
        case 0:
            lists[which].apply(choice, input.byte());
            break;
        case 1:
            maps[which].apply(choice, key(input), key(input));
            break;
        case 2:
            sets[which].apply(choice, key(input));
            break;
        case 3:
            transfer(choice, lists, which);
            break;
        case 4:
            transfer(choice, maps, which);
            break;
        default:
            transfer(choice, sets, which);
        }
    }

    static std::string key(Input& input) { return std::string(input.take(input.byte() % 4)); }

    void check() const {
        for (unsigned i = 0; i < 2; ++i) {
            lists[i].check();
            maps[i].check();
            sets[i].check();
        }
        std::set<const unsigned*> objects;
        for (const Lists& list : lists) {
            for (const auto& value : list.model) {
                objects.insert(value.get());
            }
        }
        requireEqual(Counted::alive(), static_cast<unsigned>(objects.size()), "objects that somebody owns");
    }

    Lists lists[2];
    Maps maps[2];
    Sets sets[2];
};

} // namespace

// Lists, maps, sets and shared pointers against the standard library's. The input: operations, each with the
// bytes that it needs.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    {
        Scene scene;
        for (unsigned i = 0; i < 32 && !input.isEmpty(); ++i) {
            scene.apply(input);
            if (i % 4 == 3) {
                scene.check();
            }
        }
        scene.check();
    }
    requireEqual(Counted::alive(), 0U, "objects that nobody owns any more");
    return 0;
}
