#pragma once

/// The memory that the executable's own machine code takes.
namespace ZNORBRESPONDER {

/// Takes the pages of the machine code out of the process. They are unchanged pages of the executable's file,
/// and each comes back by itself when it is next used, as a rule from the file cache: for a daemon that has
/// nothing to do. A breakpoint or a probe that somebody has set in them goes with them. On any thread, at any
/// time; a failure changes nothing.
void releaseCode();

} // namespace ZNORBRESPONDER
