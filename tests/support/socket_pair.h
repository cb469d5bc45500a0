// Two connected sockets.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "core/unique_fd.h"

namespace tessel::test {

struct SocketPair {
    // Of the kind SOCK_STREAM; flags: SOCK_NONBLOCK or none.
    explicit SocketPair(int flags = 0) {
        int ends[2] = {};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0, ends), 0);
        near = UniqueFd(ends[0]);
        far = UniqueFd(ends[1]);
    }
    UniqueFd near;
    UniqueFd far;
};

}  // namespace tessel::test
