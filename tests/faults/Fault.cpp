#include "tests/faults/Fault.h"

#include "tests/tracing/SystemCalls.h"

namespace ZNORBFAULTS {

using ZNORBTRACING::errorName;

std::string describe(const Fault& fault) {
    switch (fault.kind) {
    case FaultKind::None:
        return "none";
    case FaultKind::Fails:
        return errorName(fault.error);
    case FaultKind::FailsLate:
        return errorName(fault.error) + " (done)";
    case FaultKind::FailsAlways:
        return errorName(fault.error) + " for ever";
    case FaultKind::OneByte:
        return "one byte";
    case FaultKind::Half:
        return "half";
    }
    return "";
}

} // namespace ZNORBFAULTS
