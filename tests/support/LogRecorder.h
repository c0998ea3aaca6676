#pragma once

#include "tests/support/Waiting.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// Records what the Logger writes, from its construction to its end. At the end it removes all of the
/// Logger's streams: there is no way to remove one.
class LogRecorder {
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    /// Each write of the stream, the pieces of a record one by one.
    std::vector<std::string> writes() const;

    /// Everything, as one text.
    std::string text() const;

    /// The lines without their "\r\n".
    std::vector<std::string> lines() const;

    /// Waits until there is such a line; false when there is not within the bound.
    bool waitForLine(const std::string& line, Milliseconds bound = usualBound) const;

    void clear();

private:
    class Record;

    const std::shared_ptr<Record> m_record; ///< shared with the stream, which the Logger owns
};

/// Looks at each line at the moment when the Logger writes it, on the thread that logs, until the Logger's
/// streams are removed.
void onLogLines(std::function<void(const std::string&)> look);

/// Acts at that moment of this line.
void onLogLine(const std::string& line, const std::function<void()>& action);

} // namespace ZNORBTEST
