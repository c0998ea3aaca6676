#pragma once

#include "tests/support/Descriptor.h"
#include "tests/support/ProcessEnd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace ZNORBTEST {

/// What to run, and how.
struct Launch {
    std::string program = {};                  ///< a path; nothing is searched
    std::vector<std::string> arguments = {};   ///< without the program's own name
    std::vector<std::string> environment = {}; ///< "NAME=value", on top of this process' environment
    std::string workingDirectory = {};         ///< empty: this process'
    bool withInput = false;                    ///< standard input is a pipe (writeInput), else /dev/null
    bool asOrdinaryUser = false;               ///< as somebody who is not root
    bool asChildOfInit = false;                ///< its parent is pid 1; only in an isolated sandbox
};

/// What execv() takes for the words, which must outlive it.
std::vector<char*> argumentsOf(std::vector<std::string>& words);

/// A program that a test runs, with its standard output and error recorded. It may leave a daemon behind
/// that holds on to either: the records do not wait for anybody.
///
/// Used on one thread. The destructor ends the process, should it still run.
class ChildProcess {
public:
    /// Starts the program. A failure to is a failure of the test; a program that cannot be executed is a
    /// process that exits with status 127.
    explicit ChildProcess(const Launch& launch);
    ~ChildProcess();

    pid_t pid() const { return m_pid; }

    /// stillRunning() when it did not end within the bound.
    ProcessEnd waitForEnd(Milliseconds bound = usualBound);

    /// What it has written so far.
    std::string output() const;
    std::string errors() const;

    /// The output from this byte on, for those who have seen what is before it.
    std::string outputFrom(std::size_t start) const;

    /// Waits until the output holds the text; false when it does not within the bound.
    bool waitForOutput(const std::string& text, Milliseconds bound = usualBound) const;

    /// REQUIRES: started withInput. Whether all of the text was written.
    bool writeInput(const std::string& text) const;

private:
    void start(const Launch& launch, int input);

    pid_t m_pid = -1;
    Descriptor m_input;        ///< our end of the pipe
    const Descriptor m_output; ///< a file in memory, as is m_errors
    const Descriptor m_errors;
    ProcessEnd m_end;
};

/// How a program ran from start to end.
struct ProgramResult {
    ProcessEnd end;
    std::string output;
    std::string errors;
};

/// Runs the program to its end, for at most `bound`.
ProgramResult runProgram(const Launch& launch, Milliseconds bound = usualBound);

} // namespace ZNORBTEST
