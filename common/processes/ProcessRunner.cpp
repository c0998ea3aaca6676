#include "common/processes/ProcessRunner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>
#include <string_view>

namespace ORBCOMMON {

namespace {

/// How runProcess() copies the process.
constinit auto copyProcess = fork;

/// The parts as one new NUL-terminated text, to be released with delete[]; null when memory ran out.
char* newText(std::initializer_list<std::string_view> parts) noexcept {
    std::size_t length = 0;
    for (const std::string_view part : parts) {
        length += part.size();
    }
    char* const text = new (std::nothrow) char[length + 1]();
    if (text != nullptr) {
        char* end = text;
        for (const std::string_view part : parts) {
            end += part.copy(end, part.size());
        }
    }
    return text;
}

/// The argument vector of one program: owns a copy of each text and ends with a null pointer.
class ArgumentArray {
public:
    // Holds what memory allowed: isComplete() tells whether that is all of it.
    ArgumentArray(const std::string& program, const std::string& workingDirectory,
                  const std::vector<std::string>& arguments) noexcept
        : m_texts(new (std::nothrow) char*[arguments.size() + 2]()) {
        if (m_texts == nullptr) {
            return;
        }
        m_complete =
            append(workingDirectory.empty() ? newText({program}) : newText({workingDirectory, "/", program}));
        for (std::size_t i = 0; m_complete && i < arguments.size(); ++i) {
            m_complete = append(newText({arguments[i]}));
        }
    }

    ~ArgumentArray() {
        for (std::size_t i = 0; i < m_count; ++i) {
            delete[] m_texts[i];
        }
    }

    ArgumentArray(const ArgumentArray&) = delete;
    ArgumentArray& operator=(const ArgumentArray&) = delete;

    [[nodiscard]] bool isComplete() const noexcept { return m_complete; }
    [[nodiscard]] char* const* texts() const noexcept { return m_texts.get(); }

private:
    // False when `text`, which it takes over, is null.
    bool append(char* text) noexcept {
        m_texts[m_count++] = text;
        return text != nullptr;
    }

    std::unique_ptr<char*[]> m_texts; // each of the first m_count is owned
    std::size_t m_count = 0;
    bool m_complete = false;
};

/// Runs in the child, between fork and exec, where another thread of the parent may have left any lock held:
/// nothing here may allocate, lock, log or throw; only these two calls, on memory that was made before the
/// fork. Returns when the program could not be executed. A directory that cannot be entered is ignored on
/// purpose.
void becomeProgram(const char* workingDirectory, char* const* arguments) noexcept {
    if (*workingDirectory != '\0') {
        [[maybe_unused]] const int changed = chdir(workingDirectory);
    }
    (void)execvp(arguments[0], arguments);
}

/// Blocks until the process has ended. For -1 that is any child; without a child it returns at once.
void waitForEnd(pid_t process) noexcept {
    while (waitpid(process, nullptr, 0) == -1 && errno == EINTR) {
    }
}

} // namespace

void forkWithoutLocks() {
    copyProcess = _Fork;
}

pid_t runProcess(const std::string& program, const std::string& workingDirectory,
                 const std::vector<std::string>& arguments, bool wait) {
    const ArgumentArray argumentArray(program, workingDirectory, arguments);
    if (!argumentArray.isComplete()) {
        return -1;
    }
    const pid_t process = copyProcess();
    if (process == 0) {
        // Falls through on purpose when it fails: the child then carries on as a second copy of the caller.
        becomeProgram(workingDirectory.c_str(), argumentArray.texts());
    }
    if (wait) {
        waitForEnd(process);
    }
    return process;
}

} // namespace ORBCOMMON
