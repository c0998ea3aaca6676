#pragma once

#include <string>
#include <vector>

namespace ZNORBTEST {

/// Gives the calling process, which has a mount namespace and a pid namespace of its own, private and
/// empty versions of the directories in which the daemon leaves its names: /run and /var/run, /dev/shm,
/// and /opt without its "zn". What else there is in /opt stays in sight, and so does what `kept` lies in.
/// A fresh /proc shows the namespace's processes. Nothing outside changes.
///
/// `kept` are absolute paths, such as the program's own. Returns what failed, or an empty text.
std::string mountPrivateDirectories(const std::vector<std::string>& kept);

} // namespace ZNORBTEST
