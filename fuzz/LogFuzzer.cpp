#include "common/log/Logger.h"
#include "foundation/debuglog/DebugLog.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using namespace ZNORBFUZZ;
using Common::DebugLog;
using ORBCOMMON::Logger;

namespace {

/// A text with every digit replaced, so that time stamps compare.
std::string withoutDigits(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character >= '0' && character <= '9'; }, 'd');
    return text;
}

/// As what is read by way of a NUL-terminated text.
std::string upToNul(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

/// Both logs with all their switches, and what they have to have written.
class Logs {
public:
    void apply(char operation, Input& input) {
        switch (operation) {
        case 'p':
            Logger::pause();
            DebugLog::pause();
            m_isPaused = true;
            break;
        case 'r':
            Logger::resume();
            DebugLog::resume();
            m_isPaused = false;
            break;
        case 's':
            m_isStamped = (input.byte() & 1U) != 0;
            Logger::setShowTimestamp(m_isStamped);
            break;
        case 't':
            setThreshold(static_cast<signed char>(input.byte()));
            break;
        case 'd':
            addDebugStream(input.byte());
            break;
        case 'D':
            writeDebug(input.byte(), input.byte(), input.line());
            break;
        default:
            write(static_cast<signed char>(input.byte()), input.byte() & 3U, input.line());
        }
    }

    void check() {
        Logger::resume();
        DebugLog::resume();
        Logger::setShowTimestamp(false);
        Logger::setLogLevel(0);
        DebugLog::removeAllOutputStreams();
        requireEqual(withoutDigits(takeLog()), withoutDigits(m_expected), "the log");
        requireEqual(withoutDigits(m_debugText), withoutDigits(m_debugExpected), "the debug log");
    }

private:
    void setThreshold(int level) {
        Logger::setLogLevel(level);
        m_threshold = std::max(level, 0);
    }

    void write(int level, unsigned form, const std::string& line) {
        const std::string text = upToNul(withRun(line));
        if (form == 0) {
            Logger::log("%s", text.c_str());
            level = m_threshold;
        } else if (form == 1) {
            Logger::logAt(level, "%s and %s", text.c_str(), text.c_str());
        } else {
            Logger::writeLine(level, text.c_str());
        }
        if (m_isPaused || level > m_threshold) {
            return;
        }
        // The time of day in ctime's form: the weekday and the month are words, so they are today's.
        m_expected += m_isStamped ? '[' + now() + "] " : std::string();
        m_expected +=
            (form == 1 ? text + " and " + text : text).substr(0, form < 2 ? 8191 : std::string::npos) +
            "\r\n";
    }

    static std::string now() {
        char text[ORBCOMMON::logTimeSize] = {};
        requireEqual(ORBCOMMON::formatLogTime(std::time(nullptr), text), 24U, "length of the time");
        return text;
    }

    void addDebugStream(unsigned char mask) {
        if (m_masks.size() < 4) {
            DebugLog::addOutputStream(
                mask, Common::shared_ptr<Common::OutputStream>(new CapturingStream(m_debugText)));
            m_masks.push_back(mask);
        }
    }

    void writeDebug(int mask, unsigned form, const std::string& line) {
        const std::string text = upToNul(withRun(line));
        const bool isStamped = (form & 4U) != 0 || (form & 3U) < 2;
        const bool hasEnd = (form & 8U) != 0 || (form & 3U) < 2;
        if ((form & 3U) == 0) {
            DebugLog::print("%s", text.c_str());
            mask = 1;
        } else if ((form & 3U) == 1) {
            DebugLog::print(mask, "%s%%", text.c_str());
        } else {
            DebugLog::write(mask, text.c_str(), isStamped, hasEnd);
        }
        std::string record = (form & 3U) == 1 ? text + '%' : text;
        record.resize((form & 3U) < 2 ? std::min<std::size_t>(record.size(), 2047) : record.size());
        record = (isStamped ? "[2026-11-15 11:35:15] " : "") + record + (hasEnd ? "\n" : "");
        for (const unsigned char streamMask : m_masks) {
            m_debugExpected += (streamMask & mask) != 0 && !m_isPaused ? record : std::string();
        }
    }

    int m_threshold = 0;
    bool m_isPaused = false;
    bool m_isStamped = false;
    std::string m_expected;
    std::vector<unsigned char> m_masks;
    std::string m_debugText;
    std::string m_debugExpected;
};

} // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
    // Otherwise each time stamp looks for the file of the local zone.
    return setenv("TZ", "UTC0", 1);
}

// The Logger and the debug log, record by record. The input: operations, each with the bytes that it needs, a
// text (withRun) up to a line feed last.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    (void)takeLog();
    Logs logs;
    while (!input.isEmpty()) {
        logs.apply(static_cast<char>(input.byte()), input);
    }
    logs.check();
    return 0;
}
