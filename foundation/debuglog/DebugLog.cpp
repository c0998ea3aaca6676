#include "foundation/debuglog/DebugLog.h"

#include "foundation/containers/List.h"
#include "foundation/containers/Pair.h"
#include "foundation/debuglog/HexDump.h"
#include "foundation/synchronization/ProcessMutex.h"
#include "foundation/synchronization/ScopedMutexLock.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

namespace Common {

namespace {

using Synchronization::ProcessMutex;
using Synchronization::ScopedMutexLock;
using Entry = pair<unsigned char, shared_ptr<OutputStream>>;

constexpr int defaultCategory = 1;
constexpr std::size_t messageCapacity = 2048;
constexpr std::size_t stampCapacity = 90;

constinit list<Entry> streams;

/// Read without the lock, only to decide whether there is work at all.
constinit std::atomic<bool> paused = false;
constinit std::atomic<bool> hasStreams = false;

/// True while DebugLogMutex exists.
constinit std::atomic<bool> isUsable = false;

/// The log's life: from the construction of DebugLogMutex to before the first of its objects goes.
class Life {
public:
    Life() { isUsable = true; }
    ~Life() {
        isUsable = false;
        hasStreams = false;
    }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
};

void writePiece(OutputStream& stream, const char* text) {
    stream.write(text, static_cast<unsigned int>(std::strlen(text)));
}

/// Leaves `stamp` empty should the clock yield no date.
void formatNow(char (&stamp)[stampCapacity]) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset(); // as localtime does, so that a change of the time zone is seen
    if (localtime_r(&now, &local) == nullptr) {
        stamp[0] = '\0';
        return;
    }
    (void)std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local); // there is room for any year
}

/// The pieces of a record are separate writes.
void writeRecord(OutputStream& stream, const char* stamp, const char* text, bool withNewline) {
    if (stamp != nullptr) {
        writePiece(stream, "[");
        writePiece(stream, stamp);
        writePiece(stream, "] ");
    }
    writePiece(stream, text);
    if (withNewline) {
        writePiece(stream, "\n");
    }
}

__attribute__((format(printf, 2, 0))) void printMessage(int categoryMask, const char* format,
                                                        std::va_list arguments) {
    char message[messageCapacity] = {}; // a conversion that fails still leaves a text
    (void)std::vsnprintf(message, sizeof(message), format, arguments);
    DebugLog::write(categoryMask, message, true, true);
}

} // namespace

ProcessMutex DebugLogMutex;

namespace {

const Life life; // after everything else here, so that it ends first

} // namespace

void DebugLog::write(int categoryMask, const char* text, bool withTimestamp, bool withNewline) {
    if (!isActive()) {
        return;
    }
    const ScopedMutexLock<ProcessMutex> guard(DebugLogMutex);
    char stamp[stampCapacity];
    if (withTimestamp) {
        formatNow(stamp);
    }
    for (const Entry& entry : streams) {
        if ((entry.first & categoryMask) != 0 && entry.second) {
            writeRecord(*entry.second, withTimestamp ? stamp : nullptr, text, withNewline);
        }
    }
}

void DebugLog::print(const char* format, ...) {
    if (!isActive()) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    printMessage(defaultCategory, format, arguments);
    va_end(arguments);
}

void DebugLog::print(int categoryMask, const char* format, ...) {
    if (!isActive()) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    printMessage(categoryMask, format, arguments);
    va_end(arguments);
}

void DebugLog::hexDump(int categoryMask, const void* data, std::int32_t length) {
    if (!isActive()) {
        return;
    }
    write(categoryMask, hexDumpHeader, true, true);
    write(categoryMask, hexDumpRule, true, true);
    const std::uint32_t count = length > 0 ? static_cast<std::uint32_t>(length) : 0;
    const char* const bytes = static_cast<const char*>(data);
    for (std::uint32_t offset = 0; offset < count; offset += hexDumpRowBytes) {
        char row[hexDumpRowCapacity];
        buildHexDumpRow(row, offset, bytes + offset, count - offset);
        write(categoryMask, row, true, true);
    }
}

void DebugLog::addOutputStream(unsigned char categoryMask, const shared_ptr<OutputStream>& stream) {
    if (!isUsable) {
        return;
    }
    const ScopedMutexLock<ProcessMutex> guard(DebugLogMutex);
    try {
        streams.append(Entry(categoryMask, stream));
        hasStreams.store(true, std::memory_order_relaxed);
    } catch (const std::bad_alloc&) {
        return;
    }
}

void DebugLog::removeAllOutputStreams() {
    if (!isUsable) {
        return;
    }
    const ScopedMutexLock<ProcessMutex> guard(DebugLogMutex);
    hasStreams.store(false, std::memory_order_relaxed);
    streams.clear();
}

void DebugLog::pause() {
    paused.store(true, std::memory_order_relaxed);
}

void DebugLog::resume() {
    paused.store(false, std::memory_order_relaxed);
}

bool DebugLog::isActive() {
    return !paused.load(std::memory_order_relaxed) && hasStreams.load(std::memory_order_relaxed);
}

} // namespace Common
