#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// How objects lie in memory, for tests of an order that no operation shows.
namespace ZNORBTEST {

/// What stands so many bytes behind the start of an object: its private fields, too.
template <typename Field>
const Field& fieldAt(const void* object, std::size_t offset) {
    return *static_cast<const Field*>(static_cast<const void*>(static_cast<const char*>(object) + offset));
}

/// The place of a virtual operation in the table of its class, counted from 0; the destructor takes two.
/// (That is how the C++ ABI of this machine's kind writes a pointer to such an operation.)
template <typename Operation>
std::size_t slotOf(Operation operation) {
    static_assert(std::is_member_function_pointer_v<Operation>);
    std::uintptr_t place = 0;
    std::memcpy(&place, static_cast<const void*>(&operation), sizeof place);
    return place / sizeof(void*);
}

} // namespace ZNORBTEST
