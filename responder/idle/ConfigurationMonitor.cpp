#include "responder/idle/ConfigurationMonitor.h"

#include "common/log/Logger.h"

namespace ZNORBRESPONDER {

void ConfigurationMonitor::run() {
    ORBCOMMON::Logger::log("Configuration Change Monitor Started");
    ORBCOMMON::Logger::log("Configuration Change Monitor Stopped");
}

} // namespace ZNORBRESPONDER
