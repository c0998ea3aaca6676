#pragma once

#include <fcntl.h>
#include <semaphore.h>

#include <string>

namespace ZNORBTEST {

/// A handle on a named semaphore besides those of the code under test: another process's view of it, which
/// stays when the name goes.
class Onlooker {
public:
    explicit Onlooker(const std::string& name) : m_semaphore(sem_open(name.c_str(), 0)) {}
    /// Makes the name.
    Onlooker(const std::string& name, unsigned count)
        : m_semaphore(sem_open(name.c_str(), O_CREAT | O_EXCL, 0644, count)) {}
    ~Onlooker() {
        if (isOpen()) {
            (void)sem_close(m_semaphore);
        }
    }
    Onlooker(const Onlooker&) = delete;
    Onlooker& operator=(const Onlooker&) = delete;

    [[nodiscard]] bool isOpen() const { return m_semaphore != SEM_FAILED; }

    /// -1 when the semaphore could not be opened.
    [[nodiscard]] int count() const {
        int value = -1;
        return isOpen() && sem_getvalue(m_semaphore, &value) == 0 ? value : -1;
    }
    void post() const { (void)sem_post(m_semaphore); }

private:
    sem_t* m_semaphore;
};

} // namespace ZNORBTEST
