#include "tests/faults/TracedProgram.h"

#include "tests/faults/Tracer.h"
#include "tests/support/Files.h"
#include "tests/support/SystemCallTracer.h"
#include "tests/tracing/Words.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;
[[noreturn]] void execute(const ZNORBTEST::Launch& launch, int output, int errors) {
    std::vector<std::string> words = {launch.program};
    words.insert(words.end(), launch.arguments.begin(), launch.arguments.end());
    const std::vector<char*> argv = ZNORBTEST::argumentsOf(words);
    for (const std::string& setting : launch.environment) {
        const std::size_t equals = setting.find('=');
        (void)setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    (void)dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(errors, STDERR_FILENO);
    (void)personality(ADDR_NO_RANDOMIZE); // the same calls for memory in every life
    if (ZNORBTEST::stopForTracer()) {
        (void)execv(launch.program.c_str(), argv.data());
    }
    _exit(127);
}

} // namespace

TracedProgram::TracedProgram(const ZNORBTEST::Launch& launch, const std::string& role, const Fault& fault,
                             bool recordsCalls)
    : m_report(memfd_create("report", MFD_CLOEXEC)),
      m_output(memfd_create("output", MFD_CLOEXEC)),
      m_errors(memfd_create("errors", MFD_CLOEXEC)),
      m_tracer(fork()) {
    if (m_tracer == 0) {
        const pid_t first = fork();
        if (first == 0) {
            execute(launch, m_output.get(), m_errors.get());
        }
        if (first > 0) {
            Tracer(fault, recordsCalls, m_report.get()).follow(first, role);
        }
        _exit(EXIT_SUCCESS);
    }
}

TracedProgram::~TracedProgram() {
    if (m_tracer > 0) {
        (void)kill(m_tracer, SIGKILL); // and with it all that it traces
        while (waitpid(m_tracer, nullptr, 0) == -1 && errno == EINTR) {
        }
    }
}

std::string TracedProgram::output() const {
    return ZNORBTEST::contentOf(m_output.get());
}

std::string TracedProgram::errors() const {
    return ZNORBTEST::contentOf(m_errors.get());
}

const std::vector<TracedProcess>& TracedProgram::processes() {
    readReport();
    return m_processes;
}

const TracedProcess* TracedProgram::find(const std::string& role) {
    readReport();
    const auto found =
        std::find_if(m_processes.begin(), m_processes.end(),
                     [&role](const TracedProcess& candidate) { return candidate.role == role; });
    return found == m_processes.end() ? nullptr : &*found;
}

TracedProcess& TracedProgram::process(const std::string& role) {
    for (TracedProcess& known : m_processes) {
        if (known.role == role) {
            return known;
        }
    }
    m_processes.emplace_back();
    m_processes.back().role = role;
    return m_processes.back();
}

void TracedProgram::readReport() {
    const std::string more = ZNORBTEST::contentOf(m_report.get(), m_read);
    m_read += more.size();
    std::vector<std::string> lines = splitAt('\n', m_rest + more);
    m_rest = lines.back();
    lines.pop_back();
    for (const std::string& line : lines) {
        note(splitAt('\t', line));
    }
}

void TracedProgram::note(const std::vector<std::string>& words) {
    const std::string& kind = words[0];
    if (kind == "fault") {
        m_isFaultInjected = true;
    } else if (kind == "call") {
        m_calls.push_back({{words[1], words[2], words[3], static_cast<unsigned>(std::stoul(words[4]))},
                           std::stol(words[5]),
                           words[6] == "1"});
    } else if (kind == "start") {
        process(words[1]).pid = static_cast<pid_t>(std::stol(words[2]));
    } else if (kind == "thread") {
        process(words[1]).hasThread = true;
    } else if (kind == "exec") {
        process(words[1]).otherProgram = words[2];
    } else if (kind == "stays") {
        process(words[1]).hasStayed = true;
    } else if (kind == "end") {
        TracedProcess& ended = process(words[1]);
        ended.hasEnded = true;
        ended.waitStatus = static_cast<int>(std::stol(words[3]));
        ended.milliseconds = std::stol(words[4]);
    }
}

} // namespace ZNORBFAULTS
