#pragma once

#include <cstddef>

/// For tests of what becomes of a static initialisation for which there is no memory: copies of the test
/// program start with an allocation that fails.
namespace ZNORBTEST {

/// For a static object of the tests: in a copy of the program in whose environment `variable` is set, an
/// allocation of exactly `size` bytes fails from here on. Whether this is such a copy.
///
/// Nobody knows how many come before the one that a test means: the copy forks one child after the other in
/// which 0, 1, 2 and so on succeed, and returns in these only. It ends with status 0 as soon as one of them
/// does, which is to say that the test has passed there.
bool failAllocationAtStart(std::size_t size, const char* variable);

/// Runs such copies, with nothing but the running test, which passes there only if it finds the effect of the
/// failure. A failure of the test if it never does.
void expectToPassInCopyWith(const char* variable);

/// Whether this is such a copy.
bool isCopyWith(const char* variable);

} // namespace ZNORBTEST
