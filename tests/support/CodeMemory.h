#pragma once

#include <sys/types.h>

/// What /proc tells about the machine code in a process' memory.
namespace ZNORBTEST {

/// KiB of the process' own executable that it maps for execution, and that are in its memory at this moment;
/// 0 when there is no such process.
unsigned long residentCode(pid_t pid);

} // namespace ZNORBTEST
