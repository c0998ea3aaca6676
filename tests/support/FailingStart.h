#pragma once

/// For tests of what becomes of a static initialisation for which there is no memory: copies of the test
/// program start with an allocation that fails. The program brings an operator new of its own that lets one
/// fail, and asks here for which.
namespace ZNORBTEST {

/// For a static object of the tests, in whose copy of the program `variable` is set: how many allocations, of
/// the kind that is to fail, succeed before the one that fails. Negative where none is to fail, because the
/// variable is not set.
///
/// Nobody knows how many come before the one that a test means: this process forks one child after the
/// other for 0, 1, 2 and so on, and returns in these only. It ends with status 0 as soon as one of them does,
/// which is to say that the test has passed there.
int allocationsBeforeFailure(const char* variable);

/// Runs such copies, with nothing but the running test, which passes there only if it finds the effect of the
/// failure. A failure of the test if it never does.
void expectToPassInCopyWith(const char* variable);

/// Whether this is such a copy.
bool isCopyWith(const char* variable);

} // namespace ZNORBTEST
