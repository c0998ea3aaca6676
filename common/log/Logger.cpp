#include "common/log/Logger.h"

#include "foundation/debuglog/HexDump.h"
#include "foundation/synchronization/ScopedMutexLock.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace ORBCOMMON {

namespace {

using Common::Synchronization::RecursiveProcessMutex;

/// A longer message is cut to this size less its NUL.
constexpr std::size_t messageSize = 8192;

enum class Phase {
    Unlocked, // logger_mutex is not made yet, and only one thread runs
    Locked,
    Silent // the stream list and logger_mutex are going or gone
};

constinit std::atomic<Phase> currentPhase = Phase::Unlocked;

Common::shared_ptr<RecursiveProcessMutex> newLoggerMutex() noexcept {
    try {
        return Common::shared_ptr<RecursiveProcessMutex>(new RecursiveProcessMutex);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

using Guard = std::optional<Common::Synchronization::ScopedMutexLock<RecursiveProcessMutex>>;

/// logger_mutex as every operation holds it: in the phase that has one.
Guard lockLogger() {
    return currentPhase == Phase::Locked ? Guard(std::in_place, *logger_mutex) : Guard();
}

/// Its life, from the last constructor of this file to the first destructor, is the locked phase.
class PhaseChange {
public:
    PhaseChange() noexcept { currentPhase = logger_mutex ? Phase::Locked : Phase::Silent; }
    ~PhaseChange() { currentPhase = Phase::Silent; }

    PhaseChange(const PhaseChange&) = delete;
    PhaseChange& operator=(const PhaseChange&) = delete;
};

void writeText(Common::OutputStream& stream, const char* text) {
    stream.write(text, static_cast<unsigned int>(std::strlen(text)));
}

} // namespace

/// The order of the three non-trivial objects matters: they are destroyed from the last to the first.
Common::shared_ptr<RecursiveProcessMutex> logger_mutex = newLoggerMutex();

constinit int Logger::s_logLevel = 0;
constinit bool Logger::s_logPaused = false;
constinit bool Logger::s_showTimestamp = false;
constinit Common::list<Common::shared_ptr<Common::OutputStream>> Logger::s_outputStreamList;
constinit std::atomic<bool> Logger::s_hasStreams = false;

namespace {

const PhaseChange phaseChange;

} // namespace

unsigned int formatLogTime(std::time_t seconds, char (&text)[logTimeSize]) {
    // As ctime itself does, so that a change of the time zone is seen while the process runs.
    tzset();
    if (ctime_r(&seconds, text) == nullptr) {
        text[0] = '\0';
        return 0;
    }
    const std::size_t length = std::strcspn(text, "\n");
    text[length] = '\0';
    return static_cast<unsigned int>(length);
}

bool Logger::isWritten(int level) noexcept {
    return currentPhase != Phase::Silent && !s_logPaused && level <= s_logLevel &&
           !s_outputStreamList.empty();
}

void Logger::log(const char* format, ...) {
    if (isSilent()) {
        return;
    }
    const Guard guard = lockLogger();
    va_list arguments;
    va_start(arguments, format);
    writeFormatted(s_logLevel, format, arguments);
    va_end(arguments);
}

void Logger::logAt(int level, const char* format, ...) {
    if (isSilent()) {
        return;
    }
    const Guard guard = lockLogger();
    va_list arguments;
    va_start(arguments, format);
    writeFormatted(level, format, arguments);
    va_end(arguments);
}

void Logger::vlog(int level, const char* format, va_list arguments) {
    if (isSilent()) {
        return;
    }
    const Guard guard = lockLogger();
    writeFormatted(level, format, arguments);
}

// Apart from its callers, so that without a stream they do not touch the stack's pages for a message.
void Logger::writeFormatted(int level, const char* format, va_list arguments) {
    if (!isWritten(level)) {
        return;
    }
    char message[messageSize]; // 8 KiB, so filled only where it must be
    va_list again;
    va_copy(again, arguments);
    if (std::vsnprintf(message, sizeof message, format, arguments) < 0) {
        // The C library has rejected the format halfway. Over zeros the text before that has an end.
        std::memset(message, 0, sizeof message);
        (void)std::vsnprintf(message, sizeof message, format, again);
    }
    va_end(again);
    writeRecord(message);
}

void Logger::writeLine(int level, const char* text) {
    const Guard guard = lockLogger();
    if (isWritten(level)) {
        writeRecord(text);
    }
}

void Logger::writeRecord(const char* text) {
    // Settled once for all streams: a stream that logs may change the switch.
    const bool stamped = s_showTimestamp;
    char time[logTimeSize] = {};
    if (stamped) {
        (void)formatLogTime(std::time(nullptr), time);
    }
    for (const Common::shared_ptr<Common::OutputStream>& stream : s_outputStreamList) {
        if (!stream) {
            continue;
        }
        if (stamped) {
            writeText(*stream, "[");
            writeText(*stream, time);
            writeText(*stream, "] ");
        }
        writeText(*stream, text);
        writeText(*stream, "\r\n");
    }
}

void Logger::hexDump(int level, const void* data, unsigned int length) {
    const Guard guard = lockLogger();
    if (!isWritten(level)) {
        return;
    }
    // Both lines have a line feed of their own before the one that ends the record.
    logAt(level, "%s\n", Common::hexDumpHeader);
    logAt(level, "%s\n", Common::hexDumpRule);
    const char* const bytes = static_cast<const char*>(data);
    // By what each row has: behind the last row of the largest dump a full one more would begin again at 0.
    for (std::uint32_t offset = 0, count = 0; offset < length; offset += count) {
        count = std::min<std::uint32_t>(length - offset, Common::hexDumpRowBytes);
        char row[Common::hexDumpRowCapacity];
        Common::buildHexDumpRow(row, offset, bytes + offset, count);
        writeLine(level, row);
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the caller hands a share over
void Logger::addOutputStream(Common::shared_ptr<Common::OutputStream> stream) {
    const Guard guard = lockLogger();
    if (currentPhase == Phase::Silent) {
        return;
    }
    try {
        s_outputStreamList.append(stream);
        s_hasStreams = true;
    } catch (const std::bad_alloc&) {
        // Not added: the log is no reason to end the process.
    }
}

void Logger::removeAllOutputStreams() {
    const Guard guard = lockLogger();
    if (currentPhase != Phase::Silent) {
        s_outputStreamList.clear();
        s_hasStreams = false; // afterwards: a stream that goes may still log to those behind it
    }
}

void Logger::pause() {
    const Guard guard = lockLogger();
    s_logPaused = true;
}

void Logger::resume() {
    const Guard guard = lockLogger();
    s_logPaused = false;
}

void Logger::setShowTimestamp(bool show) {
    const Guard guard = lockLogger();
    s_showTimestamp = show;
}

void Logger::setLogLevel(int level) {
    const Guard guard = lockLogger();
    s_logLevel = std::max(level, 0);
}

} // namespace ORBCOMMON
