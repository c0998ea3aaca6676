#include "responder/idle/WBXResponderMonitor.h"

#include "common/log/Logger.h"
#include "responder/table/SharedObject.h"
#include "responder/webconsole/WebConsoleRegistration.h"

namespace ZNORBRESPONDER {

void WBXResponderMonitor::run() {
    SharedObject object;
    object.create();
    ORBCOMMON::Logger::log("WBX Responder Monitor Started");
    if (object.table() == nullptr) {
        ORBCOMMON::Logger::log("WBX Responder Monitor could not allocate global shared memory.");
    }
    (void)registerWebConsole();
    ORBCOMMON::Logger::log("WBX Responder Monitor Stopped");
}

} // namespace ZNORBRESPONDER
