#include "tests/support/LogRecorder.h"

#include "common/log/Logger.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "tests/support/Words.h"

#include <algorithm>
#include <mutex>

namespace ZNORBTEST {

/// Written by whatever thread logs, read by the test's.
class LogRecorder::Record {
public:
    void add(std::string piece) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_writes.push_back(std::move(piece));
    }

    std::vector<std::string> writes() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_writes;
    }

    void clear() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_writes.clear();
    }

    /// The stream of a record.
    class Stream : public Common::OutputStream {
    public:
        explicit Stream(std::shared_ptr<Record> record) : m_record(std::move(record)) {}

        void write(const char* data, const unsigned int& length) override { m_record->add({data, length}); }

    private:
        const std::shared_ptr<Record> m_record;
    };

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_writes;
};

LogRecorder::LogRecorder() : m_record(std::make_shared<Record>()) {
    ORBCOMMON::Logger::addOutputStream(
        Common::shared_ptr<Common::OutputStream>(new Record::Stream(m_record)));
}

LogRecorder::~LogRecorder() {
    ORBCOMMON::Logger::removeAllOutputStreams();
}

std::vector<std::string> LogRecorder::writes() const {
    return m_record->writes();
}

std::string LogRecorder::text() const {
    std::string result;
    for (const std::string& piece : writes()) {
        result += piece;
    }
    return result;
}

std::vector<std::string> LogRecorder::lines() const {
    return partsOf(text(), "\r\n");
}

bool LogRecorder::waitForLine(const std::string& line, Milliseconds bound) const {
    return waitUntil(bound, [this, &line]() {
        const std::vector<std::string> all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    });
}

void LogRecorder::clear() {
    m_record->clear();
}

namespace {

class LineObserver : public Common::OutputStream {
public:
    explicit LineObserver(std::function<void(const std::string&)> look) : m_look(std::move(look)) {}

    void write(const char* data, const unsigned int& length) override {
        const std::string text(data, length);
        if (text != "\r\n") {
            m_look(text);
        }
    }

private:
    const std::function<void(const std::string&)> m_look;
};

} // namespace

void onLogLines(std::function<void(const std::string&)> look) {
    ORBCOMMON::Logger::addOutputStream(
        Common::shared_ptr<Common::OutputStream>(new LineObserver(std::move(look))));
}

void onLogLine(const std::string& line, const std::function<void()>& action) {
    onLogLines([line, action](const std::string& text) {
        if (text == line) {
            action();
        }
    });
}

} // namespace ZNORBTEST
