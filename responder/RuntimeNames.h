#pragma once

/// The names, paths, sizes and time-outs of what the daemon has to do with the world outside: clients,
/// requesters, administrators and the web console.
namespace ZNORBRESPONDER {

/// Named semaphore that marks the running instance.
inline constexpr const char* applicationLockName = "/znorb.appLock";

/// Shared-memory object that holds the table of clients.
inline constexpr const char* sharedVariablesName = "/znorb.shvars";

/// UNIX-domain stream socket that takes the requests.
inline constexpr const char* commandSocketPath = "/var/run/znorb.socket";

/// Root of the web console; everything published goes below it.
inline constexpr const char* consoleRoot = "/opt/zn/znwbx/";

/// The product's short word, as installation paths use it.
inline constexpr const char* productWord = "znorb";

/// Program that "GET" starts, beside the daemon's own executable.
inline constexpr const char* clientProgram = "znorbclient";

/// Environment variable that overrides the product's HTML directory.
inline constexpr const char* htmlPathVariable = "ZNORB_HTML_PATH";

inline constexpr const char* quitCommand = "QUIT";
inline constexpr const char* printCommand = "PRINT";
inline constexpr const char* getCommand = "GET";

/// Most bytes of a request, and of a reply, that one `recv` takes.
inline constexpr unsigned commandBufferSize = 1024;

inline constexpr int commandSocketBacklog = 5;

/// Seconds that the accept loop waits for a connection before it looks again.
inline constexpr long acceptWaitSeconds = 5;

/// Seconds that either side of the command socket waits for the other's bytes.
inline constexpr long commandWaitSeconds = 60;

/// Seconds that one wait for an HTTP response lasts.
inline constexpr long httpWaitSeconds = 1800;

} // namespace ZNORBRESPONDER
