#pragma once

#include "common/threads/Threadable.h"

namespace ZNORBRESPONDER {

/// Placeholder for watching configuration changes: its thread would only announce its start and its end.
/// The daemon holds one instance, `gConfigMon`, and starts no thread on it.
class ConfigurationMonitor : public ORBCOMMON::Threadable {
public:
    ConfigurationMonitor() = default;

    void run() override;
};

} // namespace ZNORBRESPONDER
