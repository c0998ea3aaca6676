#include "foundation/streams/OutputStreamToConsole.h"

#include <cstdio>

namespace Common {

void OutputStreamToConsole::write(const char* data, const unsigned int& /*length*/) {
    (void)std::printf("%s", data);
    (void)std::fflush(stdout);
}

} // namespace Common
