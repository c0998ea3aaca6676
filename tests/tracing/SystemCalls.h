#pragma once

#include <string>
#include <vector>

/// The system calls that a life of the daemon is made of, and how each may fail.
namespace ZNORBTRACING {

/// What tells one call from another of the same name: the object that it works on.
enum class Object {
    None,
    PathInFirst,     ///< argument 0 is a path
    PathInSecond,    ///< argument 1 is, relative to argument 0; when it is empty, argument 0 is a descriptor
    Link,            ///< argument 1 is the new path
    Descriptor,      ///< argument 0
    Range,           ///< argument 0 is the lowest of several
    Copy,            ///< argument 1 is the descriptor that is made
    Highest,         ///< argument 0 is the only awaited descriptor plus one
    Memory,          ///< argument 0 is an address that a mapping returned
    Mapping,         ///< as mmap describes it
    Break,           ///< the end of the heap
    Signal,          ///< argument 0
    Process,         ///< argument 0 are clone's flags
    ProcessByRecord, ///< argument 0 points to them
    Family           ///< argument 0 is a socket's address family
};

struct SystemCall {
    long number;
    const char* name;
    Object object;
    bool isTransfer;         ///< argument 2 is a length that the kernel may use a part of
    std::vector<int> errors; ///< what the manual lists and a local daemon can meet
};

/// Null for those that cannot fail, that nobody of ours makes, and the waits in user space (futex): a
/// failure of these would be an error of the C library.
const SystemCall* findSystemCall(long number);
const SystemCall* findSystemCall(const std::string& name);

/// One of those that findSystemCall leaves out on purpose.
bool isLeftOut(long number);

/// What begins the name, in a record, of a call that is neither listed nor left out.
inline constexpr char unlistedCall[] = "number ";

/// "ENOMEM" and the like.
std::string errorName(int error);

} // namespace ZNORBTRACING
