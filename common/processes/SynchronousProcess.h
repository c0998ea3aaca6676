#pragma once

#include "common/threads/Threadable.h"

#include <cstdint>
#include <memory>

namespace ORBCOMMON {

/// A thread that serves one request at a time for a caller on another thread.
///
/// The life of a request: the caller enters call(), which signals the request event; the service loop,
/// the subclass's run(), comes out of waitForRequest(), does its work, may leave a result with
/// setResult() and ends with signalDone(); call() then returns the result.
///
/// The owner starts and stops the thread, on one thread, and keeps the object alive until it has ended.
/// One caller at a time. Everything lives in one record on the heap; without memory for it the
/// operations fail as each of them says.
class SynchronousProcess : public Threadable {
public:
    SynchronousProcess();

    /// Does not stop the thread, which must have ended: call stop() first.
    ~SynchronousProcess() override;

    SynchronousProcess(const SynchronousProcess&) = delete;
    SynchronousProcess& operator=(const SynchronousProcess&) = delete;

    /// Hands a request to the thread and waits for its answer. Returns the result, 1 unless the
    /// subclass set another; 0 when stop() released the caller, or without memory. There is no limit to
    /// the waiting: REQUIRES a started thread that has not been stopped.
    virtual int call();

    /// Starts the thread. REQUIRES that none is running. Returns 0 when started, else an error number
    /// (see start()); ENOMEM without memory.
    int startThread();

    /// Releases a caller that is blocked in call(), with the result 0, and waits until the thread has
    /// ended; with no caller blocked, the next call() is answered so. It does not wake a run() that sits
    /// in waitForRequest(): the subclass sees to it that its run() comes to an end.
    void stop();

protected:
    /// For run(): waits for the next request and takes it. False when the waiting failed; the service
    /// loop should then end.
    bool waitForRequest();

    /// For run(): tells the caller that its request is done. setResult() comes before it.
    void signalDone();

    /// For run(): what call() returns from now on.
    void setResult(std::int32_t result);

private:
    struct Record;

    /// Null when there was no memory.
    std::unique_ptr<Record> m_record;
};

} // namespace ORBCOMMON
