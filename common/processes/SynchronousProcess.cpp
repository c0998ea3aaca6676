#include "common/processes/SynchronousProcess.h"

#include "common/processes/ProcessEvent.h"
#include "common/threads/ThreadHandle.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

namespace ORBCOMMON {

struct SynchronousProcess::Record {
    ProcessEvent request{false, false};
    ProcessEvent response{false, false};
    // Atomic because stop() may write it while a caller that was just answered reads it.
    std::atomic<std::int32_t> result{1};
    // Null until the thread is started.
    std::unique_ptr<ThreadHandle> thread;
};

SynchronousProcess::SynchronousProcess() : m_record(new (std::nothrow) Record) {}

SynchronousProcess::~SynchronousProcess() = default;

int SynchronousProcess::call() {
    if (m_record == nullptr) {
        return 0;
    }
    (void)m_record->request.set();
    (void)m_record->response.wait();
    const std::int32_t result = m_record->result;
    (void)m_record->response.reset();
    return result;
}

int SynchronousProcess::startThread() {
    std::unique_ptr<ThreadHandle> handle(m_record != nullptr ? new (std::nothrow) ThreadHandle : nullptr);
    if (handle == nullptr) {
        return ENOMEM;
    }
    const int result = start(*handle, this);
    // The one before, if any, is of a start that failed or of a thread that was stopped.
    m_record->thread = std::move(handle);
    return result;
}

void SynchronousProcess::stop() {
    if (m_record == nullptr) {
        return;
    }
    m_record->result = 0;
    (void)m_record->response.set();
    if (m_record->thread != nullptr) {
        join(*m_record->thread);
    }
}

bool SynchronousProcess::waitForRequest() {
    if (m_record == nullptr) {
        return false;
    }
    const bool requested = m_record->request.wait();
    (void)m_record->request.reset();
    return requested;
}

void SynchronousProcess::signalDone() {
    if (m_record != nullptr) {
        (void)m_record->response.set();
    }
}

void SynchronousProcess::setResult(std::int32_t result) {
    if (m_record != nullptr) {
        m_record->result = result;
    }
}

} // namespace ORBCOMMON
