#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

/// The sandbox in which the daemon's tests, the demonstration and the soak run: the daemon's
/// names are fixed ("/run/znorb.socket", "/dev/shm/znorb.shvars" and so on), so that a daemon of the
/// machine's own, or a test that runs at the same time, would meet them.
///
/// Isolated, with namespaces of its own for mounts and processes (and for users, when the caller is not
/// root: inside it is root):
///
///     caller        waits, passes the end on. Its death ends everything below.
///      └ init       pid 1 inside. Reaps what is left to it and records how it ended (endOfOrphan).
///         └ runner  pid 2 inside. Runs the body. As a subreaper it inherits detached daemons, so that the
///                   body can wait for them, and so that nobody whom it starts has the parent pid 1.
///
/// /run, /var/run and /dev/shm are empty inside, /opt has no "zn". What the body leaves running ends with
/// the runner.
///
/// Direct, for root where namespaces are forbidden (a plain container): the runner works on the machine's
/// own names, one session at a time, which a lock file in the temporary folder sees to. It refuses to when
/// any of the names exist, and removes them, and what still runs, at its end. A session that was killed in
/// the middle is cleaned up after by the next one. ZNORB_SANDBOX=direct in the environment asks for this
/// mode.
namespace ZNORBTEST {

enum class SandboxMode { None, Isolated, Direct };

struct SandboxOptions {
    /// How long a direct session waits for the one before it.
    int lockSeconds = 500;
};

struct SandboxOutcome {
    enum class Kind {
        Ended,       ///< the body ran; waitStatus tells how the runner ended
        Unavailable, ///< neither namespaces nor root: nothing was run
        Refused      ///< a direct session must not or cannot begin: nothing was run
    };
    Kind kind;
    int waitStatus;
    std::string reason; ///< for Unavailable and Refused, for people to read
};

/// Runs the body in a sandbox and waits for it. The body's result becomes the runner's exit status, after
/// a normal exit() (so that sanitizers report at its end). Call it while there is only one thread.
SandboxOutcome runSandboxed(const std::function<int()>& body, const SandboxOptions& options = {});

/// Ends this process as the one with the wait status ended: with its exit status, or by its signal.
[[noreturn]] void endLike(int waitStatus);

/// In which kind of sandbox this process, or the process that started it, is a runner; None outside.
SandboxMode currentSandboxMode();

/// How a child of the sandbox's pid 1 ended; nullopt while it runs, and in a direct session. For runners.
std::optional<int> endOfOrphan(pid_t pid);

} // namespace ZNORBTEST
