#pragma once

#include <sys/types.h>

#include <string>

namespace Common::Synchronization {

/// The System V key of a lock file: ftok of its path with project number 0.
///
/// The path is the value of the environment variable MOLTE_LOCK_FILES_DIR with the name right behind it;
/// no separator is put between them, so the value ends in "/". The variable is read once per process, at
/// the first call; when it is unset, "(null)" stands in its place. Returns -1 when there is no such file
/// or it cannot be asked for. Any thread may call.
key_t lockFileKey(const std::string& name);

} // namespace Common::Synchronization
