#include "foundation/debuglog/OutputStreamToLog.h"

#include "foundation/debuglog/DebugLog.h"

namespace Common {

void OutputStreamToLog::write(const char* data, const unsigned int& /*length*/) {
    // The data is the format on purpose, unlike in every other kind of stream.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    DebugLog::print(data);
#pragma GCC diagnostic pop
}

} // namespace Common
