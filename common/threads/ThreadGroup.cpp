#include "common/threads/ThreadGroup.h"

#include "common/threads/ThreadHandle.h"

#include <new>

namespace ORBCOMMON {

struct ThreadGroup::Node {
    Node* next;
    Node* previous;
    ThreadHandle* handle;
};

ThreadGroup::~ThreadGroup() {
    detachAll();
}

bool ThreadGroup::add(ThreadHandle* handle) {
    if (handle == nullptr || !createSentinel()) {
        return false;
    }
    Node* node = new (std::nothrow) Node{m_sentinel, nullptr, handle};
    if (node == nullptr) {
        return false;
    }
    removeNodes(handle, true);
    node->previous = m_sentinel->previous;
    node->previous->next = node;
    m_sentinel->previous = node;
    return true;
}

void ThreadGroup::remove(const ThreadHandle* handle) {
    removeNodes(handle, false);
}

void ThreadGroup::joinAll() {
    for (Node* node = first(); node != m_sentinel; node = node->next) {
        join(*node->handle);
    }
}

void ThreadGroup::detachAll() {
    Node* node = first();
    while (node != m_sentinel) {
        detach(*node->handle);
        delete node->handle;
        node = unlinkAndDelete(node);
    }
    delete m_sentinel;
    m_sentinel = nullptr;
    m_hasSentinel = false;
}

unsigned ThreadGroup::size() const {
    unsigned count = 0;
    for (const Node* node = first(); node != m_sentinel; node = node->next) {
        ++count;
    }
    return count;
}

ThreadHandle* ThreadGroup::at(unsigned position) const {
    for (const Node* node = first(); node != m_sentinel; node = node->next) {
        if (position == 0) {
            return node->handle;
        }
        --position;
    }
    return nullptr;
}

bool ThreadGroup::createSentinel() {
    if (m_hasSentinel) {
        return true;
    }
    m_sentinel = new (std::nothrow) Node{nullptr, nullptr, nullptr};
    if (m_sentinel == nullptr) {
        return false;
    }
    m_sentinel->next = m_sentinel;
    m_sentinel->previous = m_sentinel;
    m_hasSentinel = true;
    return true;
}

ThreadGroup::Node* ThreadGroup::first() const {
    return m_hasSentinel ? m_sentinel->next : m_sentinel;
}

ThreadGroup::Node* ThreadGroup::unlinkAndDelete(Node* node) {
    Node* next = node->next;
    node->previous->next = next;
    next->previous = node->previous;
    delete node;
    return next;
}

void ThreadGroup::removeNodes(const ThreadHandle* handle, bool sameObjectToo) {
    Node* node = first();
    while (node != m_sentinel) {
        const bool matches =
            holdSameThread(node->handle, handle) || (sameObjectToo && node->handle == handle);
        node = matches ? unlinkAndDelete(node) : node->next;
    }
}

} // namespace ORBCOMMON
