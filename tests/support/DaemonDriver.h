#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/SanitizerReports.h"

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// An installation of the real executable with the stand-ins beside it, and the operations that the tests
/// of the whole system are made of. Lives in a sandbox (sandbox_test_main).
///
/// At its end it stops, by their ids, the processes that run its programs, removes its installation and
/// the names that have come up since its construction, and fails the test if a sanitizer wrote a report
/// about any of its processes.
///
/// ZNORB_WRAPPER in the environment, such as "/usr/bin/valgrind --log-file=%q{ZNORB_RUNNING_TEST}.%p", is the
/// command that runs the executable; its words are separated by spaces. ZNORB_RESPONDER is the executable,
/// where it is not to be the build's.
class DaemonDriver {
public:
    /// Short: the daemon cuts the path of its executable at 80 bytes.
    static constexpr const char* usualDirectory = "/opt/zn/znorb/bin";

    /// Installs into `directory`, which must not exist.
    explicit DaemonDriver(std::string directory = usualDirectory);
    ~DaemonDriver();

    const std::string& directory() const { return m_directory; }
    std::string program() const { return m_directory + "/znorbresponder"; }
    std::string client() const { return m_directory + "/znorbclient"; }
    std::string requestor() const { return m_directory + "/znorbrequestor"; }

    /// Puts another of the build's programs into the client's place.
    void installAsClient(const std::string& name) const;

    /// "NAME=value" for every process that is started from now on.
    void setEnvironment(const std::string& setting) { m_environment.push_back(setting); }

    /// The executable with these arguments, to be altered and run by the caller.
    Launch launch(const std::vector<std::string>& arguments) const;

    /// Runs the executable to its end.
    ProgramResult run(const std::vector<std::string>& arguments, Milliseconds bound = usualBound) const;

    /// Starts the daemon with "-d" and more words. True when the invoking process has exited with status 0
    /// and the daemon's process has been found.
    bool start(const std::vector<std::string>& more = {});

    /// start(), and waits until the socket answers: a daemon says that it has started before it listens. On
    /// return the daemon has closed that connection and has only its listening socket open.
    bool startServing(const std::vector<std::string>& more = {});

    /// How the invoking process of start() ran.
    const ProgramResult& startResult() const { return m_startResult; }

    /// The detached daemon that this process, the subreaper, has inherited, running or ended; -1 while there
    /// is none. The intermediate process of its double fork may come here as well, even before it has
    /// ended: it leads the process group that the daemon is a mere member of. `others` are left alone.
    static pid_t findDaemon(const std::vector<pid_t>& others);

    /// The process that start() found, also after its end; -1 before.
    pid_t daemon() const { return m_daemon; }

    /// How the daemon ended; stillRunning() when it did not within the bound.
    ProcessEnd waitForDaemon(Milliseconds bound = usualBound);

    /// Sends the daemon a signal and waits for its end. One that is gone is a failure of the test.
    ProcessEnd endBy(int signal);

    /// Asks the daemon to quit and waits for its end. Another answer than "0" is a failure of the test.
    ProcessEnd quit();

    /// Starts the executable with "-test" and a pipe for the keys. Keep the pipe open: the console reads
    /// an ended input again and again.
    std::unique_ptr<ChildProcess> startTestConsole() const;

    /// The same, and waits until it answers on the socket; not to do so is a failure of the test.
    std::unique_ptr<ChildProcess> startServingConsole() const;

    /// Starts the daemon as a child of process 1, and waits until it answers in the same way.
    std::unique_ptr<ChildProcess> startUnderInit() const;

    /// The clients that run now.
    std::vector<pid_t> clients() const;

    /// Waits until the client of the entry has filled in its port; false when it has not within the bound.
    static bool waitForClient(unsigned index, Milliseconds bound = usualBound);

    /// The names in /run, /var/run and /dev/shm that were not there at construction, as paths, sorted. A
    /// daemon that ended in good order leaves the socket's file only.
    std::vector<std::string> newNames() const;

    SanitizerReports& sanitizerReports() { return m_reports; }

private:
    void endProcesses();

    const std::string m_directory;
    const std::vector<std::string> m_namesBefore;
    SanitizerReports m_reports;
    std::vector<std::string> m_environment;
    ProgramResult m_startResult;
    pid_t m_daemon = -1;
    ProcessEnd m_daemonEnd;
};

} // namespace ZNORBTEST
