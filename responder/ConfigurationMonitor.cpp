#include "responder/ConfigurationMonitor.h"

#include "common/Logger.h"

namespace ZNORBRESPONDER {

void ConfigurationMonitor::run() {
    ORBCOMMON::Logger::log("Configuration Change Monitor Started");
    ORBCOMMON::Logger::log("Configuration Change Monitor Stopped");
}

} // namespace ZNORBRESPONDER
