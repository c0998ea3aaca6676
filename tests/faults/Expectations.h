#pragma once

#include <string>

namespace ZNORBFAULTS {

/// What a fault was, in words, for looking up what may come of it.
struct Incident {
    std::string role;
    std::string call; ///< "allocation" for one that fails
    std::string object;
    std::string fault;   ///< as describe() has it
    std::string outcome; ///< as difference() has it
};

/// An outcome by which a life may differ from one without a fault, and why that is right.
struct Expectation {
    const char* role; ///< this and the next four as for fnmatch(FNM_EXTMATCH)
    const char* call;
    const char* object;
    const char* fault;
    const char* outcome;
    const char* name; ///< the outcome in short
    const char* reason;
};

/// The expectation that the incident meets; nullptr when there is none: the outcome is a defect. An end by a
/// signal, a hang, a spin and a process without an end must stand in the expectation's own outcome.
/// "as ever" meets one that every incident may.
const Expectation* findExpectation(const Incident& incident);

} // namespace ZNORBFAULTS
