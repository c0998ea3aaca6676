#pragma once

#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "foundation/synchronization/ProcessMutex.h"

#include <cstdint>

namespace Common {

/// Guards the debug log's streams while a record is written or they change. Not recursive.
extern Synchronization::ProcessMutex DebugLogMutex;

/// The debug log: a second, smaller log beside the daemon's own, whose streams each choose by an 8-bit
/// category mask what reaches them. A record reaches a stream when their masks share a bit. Nothing adds
/// a stream by itself, and without streams every operation returns at once.
///
/// The object is not needed for anything: callers make a temporary one, or call the operations by name.
/// All state is the process's, from static initialisation to its exit; before and after, nothing is written
/// and no stream is taken. The log shares the ownership of its streams. Any thread may log. A record is
/// written whole under one lock, which is not recursive, so a stream of this log must not write into this
/// log, neither when written to nor when destroyed.
///
/// A record ends in a single line feed, and its time stamp reads "[2026-11-15 11:35:15] ": both differ
/// from the Logger's on purpose. No operation reports an error.
class DebugLog {
public:
    /// Writes `text`, NUL-terminated and no format, after a time stamp if `withTimestamp` and before a
    /// line feed if `withNewline`, to every stream that shares a bit with `categoryMask`.
    static void write(int categoryMask, const char* text, bool withTimestamp, bool withNewline);

    /// Writes a formatted message with time stamp and line feed, of category 1 or of the given ones. A
    /// message is cut at 2047 bytes.
    static void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void print(int categoryMask, const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Writes the header, the rule and a row for each 16 of the `length` bytes at `data`, every line as a
    /// record of its own, so that other threads' records may fall between. A length of 0 or less has no
    /// rows.
    static void hexDump(int categoryMask, const void* data, std::int32_t length);

    /// Adds a stream behind those there are; records that share a bit with `categoryMask` reach it. A null
    /// stream is passed over. Without memory for the entry, the stream is not added.
    static void addOutputStream(unsigned char categoryMask, const shared_ptr<OutputStream>& stream);

    /// Gives up all streams; those that nobody else owns are destroyed.
    static void removeAllOutputStreams();

    /// Between the two nothing is written. A record that is under way on another thread may still end.
    static void pause();
    static void resume();

    /// True when the log is not paused and has a stream. Takes no lock: the answer may be old already.
    static bool isActive();
};

} // namespace Common
