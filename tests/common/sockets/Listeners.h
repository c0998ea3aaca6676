#pragma once

#include "tests/support/Addresses.h"
#include "tests/support/Descriptor.h"

#include <gtest/gtest.h>

namespace ZNORBTEST {

/// On a path, as LocalPort on a port; the file stays.
class LocalPath {
public:
    explicit LocalPath(const std::string& path)
        : m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        EXPECT_LT(path.size(), sizeof(sockaddr_un::sun_path));
        EXPECT_EQ(bindTo(m_listener.get(), addressOf(path)), 0);
        EXPECT_EQ(listen(m_listener.get(), 5), 0);
    }

    [[nodiscard]] int acceptOne() const { return accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC); }
    void stopListening() { m_listener.reset(); }

private:
    Descriptor m_listener;
};

} // namespace ZNORBTEST
