#pragma once

#include <string>

namespace ZNORBFAULTS {

/// One call of a life, told from all others: the `occurrence`-th (from 1) of this name on this object by the
/// process or thread with this role.
struct CallSite {
    std::string role;
    std::string call;
    std::string object;
    unsigned occurrence = 1;

    bool operator==(const CallSite&) const = default;
};

enum class FaultKind {
    None,
    Fails,       ///< is not made, and reports the error
    FailsLate,   ///< is made, and reports the error: how Linux fails close()
    FailsAlways, ///< as Fails, and so does every later one of the same role, name and object
    OneByte,     ///< is made with a length of 1
    Half         ///< is made with half the length
};

struct Fault {
    CallSite site;
    FaultKind kind = FaultKind::None;
    int error = 0; ///< for the kinds that fail
};

/// "ENOMEM", "ENOMEM for ever", "one byte" and so on.
std::string describe(const Fault& fault);

} // namespace ZNORBFAULTS
