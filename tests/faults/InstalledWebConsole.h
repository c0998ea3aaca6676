#pragma once

#include <string>

namespace ZNORBFAULTS {

/// A web console for the daemon to publish into, and what it publishes, while this exists.
class InstalledWebConsole {
public:
    InstalledWebConsole();
    ~InstalledWebConsole();
    InstalledWebConsole(const InstalledWebConsole&) = delete;
    InstalledWebConsole& operator=(const InstalledWebConsole&) = delete;

    /// "whole", or what differs from what should have been published, with this program as the requestor.
    std::string stateOfPages(const std::string& requestor) const;
};

} // namespace ZNORBFAULTS
