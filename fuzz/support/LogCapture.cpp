#include "fuzz/support/LogCapture.h"

#include "common/log/Logger.h"
#include "foundation/containers/SharedPtr.h"

#include <utility>

namespace ZNORBFUZZ {

std::string takeLog() {
    static std::string& text = []() -> std::string& {
        static std::string captured;
        ORBCOMMON::Logger::addOutputStream(
            Common::shared_ptr<Common::OutputStream>(new CapturingStream(captured)));
        return captured;
    }();
    return std::exchange(text, std::string());
}

} // namespace ZNORBFUZZ
