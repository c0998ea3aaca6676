#pragma once

#include <csignal>

/// Which signals the calling thread takes. None of these can fail.
namespace ORBCOMMON {

/// Holds SIGTERM back in the calling thread, and in whatever it forks, until its mask is set again.
/// Returns the mask that was in force.
sigset_t holdTermination();

/// Sets the calling thread's mask; a signal that was held back and is not in it is delivered at once.
void restoreSignalMask(const sigset_t& mask);

/// Lets the calling thread take every signal, whatever mask the process was started with.
void clearSignalMask();

} // namespace ORBCOMMON
