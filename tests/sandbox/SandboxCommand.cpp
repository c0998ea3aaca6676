#include "tests/sandbox/Sandbox.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

/// znorb-sandbox: runs a command in the sandbox of the tests, for scripts. Detached daemons that the command
/// starts become children of this program's, which can therefore write down how they ended.
namespace {

using ZNORBTEST::SandboxOutcome;

/// As other programs that run commands have it.
enum ExitStatus { NoSandbox = 125, CannotRun = 126, NotFound = 127 };

struct Arguments {
    const char* statuses = nullptr;
    ZNORBTEST::SandboxOptions options;
    char** command = nullptr; ///< null: the command line is wrong
};

int usage() {
    (void)std::fputs(
        "usage: znorb-sandbox [--statuses FILE] [--lock-wait SECONDS] -- COMMAND [ARGUMENT...]\n"
        "Runs the command where /run, /var/run and /dev/shm are empty and /opt has no zn, and ends as it "
        "ends.\n"
        "  --statuses FILE      append a line for each orphan of the command that ends meanwhile, such as a\n"
        "                       daemon that it started: \"PID status N\" or \"PID signal N\"\n"
        "  --lock-wait SECONDS  how long to wait for another session, where there are no namespaces\n"
        "Exit status 125: there can be no sandbox; 126, 127: the command cannot be run or found.\n",
        stderr);
    return NoSandbox;
}

Arguments parse(int argc, char** argv) {
    Arguments result;
    int next = 1;
    for (; next + 1 < argc && std::strcmp(argv[next], "--") != 0; next += 2) {
        if (std::strcmp(argv[next], "--statuses") == 0) {
            result.statuses = argv[next + 1];
        } else if (std::strcmp(argv[next], "--lock-wait") == 0) {
            result.options.lockSeconds = static_cast<int>(std::strtol(argv[next + 1], nullptr, 10));
        } else {
            return result;
        }
    }
    if (next + 1 < argc && std::strcmp(argv[next], "--") == 0) {
        result.command = argv + next + 1;
    }
    return result;
}

void note(int file, pid_t pid, int waitStatus) {
    char line[64];
    const int length =
        WIFSIGNALED(waitStatus)
            ? std::snprintf(line, sizeof line, "%d signal %d\n", static_cast<int>(pid), WTERMSIG(waitStatus))
            : std::snprintf(line, sizeof line, "%d status %d\n", static_cast<int>(pid),
                            WEXITSTATUS(waitStatus));
    if (file != -1 && write(file, line, static_cast<std::size_t>(length)) != length) {
        std::perror("znorb-sandbox: the statuses file");
    }
}

/// Notes the orphans that end until the command ends; returns the command's wait status.
int waitFor(pid_t command, int statuses) {
    int result = 0;
    bool running = true;
    for (;;) {
        int waitStatus = 0;
        const pid_t pid = waitpid(-1, &waitStatus, running ? 0 : WNOHANG);
        if (pid == command) {
            running = false; // whoever has ended by now is noted still
            result = waitStatus;
        } else if (pid > 0) {
            note(statuses, pid, waitStatus);
        } else if (pid == 0 || errno != EINTR) {
            return result;
        }
    }
}

int runCommand(char** command, int statuses) {
    const pid_t pid = fork();
    if (pid == -1) {
        std::perror("znorb-sandbox: fork");
        return CannotRun;
    }
    if (pid == 0) {
        (void)execvp(command[0], command);
        const int status = errno == ENOENT ? NotFound : CannotRun;
        (void)std::fprintf(stderr, "znorb-sandbox: %s: %s\n", command[0], std::strerror(errno));
        _exit(status);
    }
    ZNORBTEST::endLike(waitFor(pid, statuses));
}

} // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    if (arguments.command == nullptr) {
        return usage();
    }
    int statuses = -1;
    if (arguments.statuses != nullptr) { // opened out here: it may lie in what is covered inside
        statuses = open(arguments.statuses, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (statuses == -1) {
            std::perror(arguments.statuses);
            return NoSandbox;
        }
    }
    char** command = arguments.command;
    const SandboxOutcome outcome = ZNORBTEST::runSandboxed(
        [command, statuses]() { return runCommand(command, statuses); }, arguments.options);
    if (outcome.kind != SandboxOutcome::Kind::Ended) {
        (void)std::fprintf(stderr, "znorb-sandbox: %s\n", outcome.reason.c_str());
        return NoSandbox;
    }
    ZNORBTEST::endLike(outcome.waitStatus);
}
