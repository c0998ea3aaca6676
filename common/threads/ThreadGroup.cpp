#include "common/threads/ThreadGroup.h"

#include "common/threads/ThreadHandle.h"

#include <iterator>
#include <memory>
#include <new>

namespace ORBCOMMON {

ThreadGroup::~ThreadGroup() {
    detachAll();
}

bool ThreadGroup::add(ThreadHandle* handle) {
    if (handle == nullptr) {
        return false;
    }
    try {
        m_handles.append(handle);
    } catch (const std::bad_alloc&) {
        return false;
    }
    // A null handle is equal to nothing, yet must not be owned twice. The new place, the last one, stays.
    for (auto place = m_handles.begin(); std::next(place) != m_handles.end();) {
        const bool isSame = *place == handle || holdSameThread(*place, handle);
        place = isSame ? m_handles.remove(place) : std::next(place);
    }
    return true;
}

void ThreadGroup::remove(const ThreadHandle* handle) {
    for (auto place = m_handles.begin(); place != m_handles.end();) {
        place = holdSameThread(*place, handle) ? m_handles.remove(place) : std::next(place);
    }
}

void ThreadGroup::joinAll() {
    for (ThreadHandle* handle : m_handles) {
        join(*handle);
    }
}

void ThreadGroup::detachAll() {
    while (!m_handles.empty()) {
        const std::unique_ptr<ThreadHandle> handle(m_handles.front()); // whose end detaches its thread
        m_handles.removeFirst();
    }
    m_handles = {};
}

std::size_t ThreadGroup::size() const {
    return m_handles.size();
}

ThreadHandle* ThreadGroup::at(std::size_t position) const {
    for (ThreadHandle* handle : m_handles) {
        if (position == 0) {
            return handle;
        }
        --position;
    }
    return nullptr;
}

} // namespace ORBCOMMON
