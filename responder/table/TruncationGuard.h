#pragma once

#include <cstddef>

/// Lets the daemon outlive a table that is taken away under its hands: everybody may shorten the shared
/// object, and the next access beyond its new end raises SIGBUS. The guard's handler then puts private zero
/// bytes in the whole table's place, so that the interrupted access goes on, and remembers the loss. Costs
/// nothing until it happens.
///
/// One guard at a time in a process; all operations on the thread that uses the guarded memory.
namespace ZNORBRESPONDER {

/// Guards the mapping of `size` bytes at `address`, a multiple of the page size. A SIGBUS that has another
/// reason still ends the process. Does nothing against a thread that blocks SIGBUS: the kernel ends the
/// process.
void guardAgainstTruncation(void* address, std::size_t size);

/// Ends the guard and forgets the loss. SIGBUS has its earlier disposition again.
void endTruncationGuard();

/// Whether the guarded memory has been lost. Then reads find zero bytes, writes reach nobody, and that stays
/// so, even when the object grows again.
bool isTruncated();

} // namespace ZNORBRESPONDER
