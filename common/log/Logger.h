#pragma once

#include "foundation/containers/List.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "foundation/synchronization/RecursiveProcessMutex.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <ctime>

namespace ORBCOMMON {

/// Guards all of the Logger's state. Null until the static initialisation of Logger.cpp; should memory run
/// out there, it stays null and the Logger is silent from then on.
extern Common::shared_ptr<Common::Synchronization::RecursiveProcessMutex> logger_mutex;

/// The log of the whole process.
///
/// A record is formatted once and written to every stream of one list, in the order in which the streams were
/// added. It is the text followed by "\r\n", and with time stamps on preceded by "[", the 24 characters of
/// the local time as `ctime` prints it, and "] ". Each of these pieces is one write of the stream, two or
/// five per record, and each is NUL-terminated as well as counted.
///
/// Levels are plain integers: 0 matters most, larger numbers are more verbose. A record of level L is written
/// when L is not above the threshold (0 unless setLogLevel() raised it).
///
/// Any thread may call any operation. Each holds logger_mutex from start to end, formatting and stream writes
/// included (except isSilent(), and a record while there is no stream), so records are whole and come in the
/// same order on all streams. A stream's write may itself log or add a stream, but must not remove the
/// streams.
///
/// Life: the list and the switches are usable before any constructor has run. Until the static initialisation
/// of Logger.cpp has made logger_mutex, operations do their work without a lock, as only one thread runs
/// then. At process exit the Logger first falls silent: nothing is written and no stream added any more. Then
/// the list releases its streams, and after it logger_mutex is deleted. No other thread may be inside an
/// operation then.
class Logger {
public:
    Logger() = delete;

    /// Writes a record whatever the threshold; only pause() stops it. `format` is printf's, without a line
    /// end. A formatted message is cut at 8191 bytes. Costs a few nanoseconds while there is no stream.
    static void log(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /// As log(), but only when `level` is not above the threshold.
    static void logAt(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// As logAt(), with the arguments in a list, which is undefined afterwards as after `vprintf`.
    static void vlog(int level, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

    /// Writes one record with `text` as it is, of any length; "%" has no meaning in it.
    static void writeLine(int level, const char* text);

    /// Writes a hexadecimal dump of `length` bytes: a header and a rule (also for 0 bytes), then a row for
    /// every 16 bytes. No other thread's record falls between them. `data` may be null when `length` is 0.
    static void hexDump(int level, const void* data, unsigned int length);

    /// Whether there is no stream, so that nothing would be written whatever is logged. Takes no lock: for
    /// callers that can spare themselves the making of many records.
    static bool isSilent() noexcept { return !s_hasStreams.load(std::memory_order_relaxed); }

    /// Appends a stream and shares its ownership. One that is added twice gets every record twice; a null
    /// pointer takes a place and gets nothing. When memory runs out the stream is not added.
    static void addOutputStream(Common::shared_ptr<Common::OutputStream> stream);

    /// Releases every stream; one that nobody else holds is destroyed.
    static void removeAllOutputStreams();

    /// Until resume(), nothing is written; what is logged meanwhile is lost.
    static void pause();
    static void resume();

    /// Whether records begin with a time stamp; at first they do not.
    static void setShowTimestamp(bool show);

    /// Sets the threshold; a negative one counts as 0.
    static void setLogLevel(int level);

private:
    /// Whether a record of the level would reach a stream. REQUIRES: logger_mutex is held.
    static bool isWritten(int level) noexcept;

    /// Formats a record and writes it, if it would reach a stream. REQUIRES: logger_mutex is held.
    static void writeFormatted(int level, const char* format, va_list arguments)
        __attribute__((format(printf, 2, 0), noinline));

    /// Writes a record to every stream. REQUIRES: isWritten() for its level.
    static void writeRecord(const char* text);

    static int s_logLevel;
    static bool s_logPaused;
    static bool s_showTimestamp;
    static Common::list<Common::shared_ptr<Common::OutputStream>> s_outputStreamList;
    static std::atomic<bool> s_hasStreams; ///< the list is not empty; changes with logger_mutex held
};

/// Room for the text of a log time stamp, its terminating NUL and the newline that is cut from it.
constexpr std::size_t logTimeSize = 26;

/// Fills `text` with the local time of `seconds` after the epoch, as `ctime` prints it but without its
/// newline, and returns the length, 24. A time that has no such text (a year above 9999) gives the empty text
/// and 0.
unsigned int formatLogTime(std::time_t seconds, char (&text)[logTimeSize]);

} // namespace ORBCOMMON
