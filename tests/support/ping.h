// Requests and results of ping.
#pragma once

#include <string>

#include "tessel/ping.h"
#include "tests/support/daemon.h"

namespace tessel::test {

constexpr u32 kPingStart = 0xC01;
constexpr u32 kPingStop = 0xC02;

struct Ping {
    TNetGateway target;
    i32 userId = 7;
    u32 count = 1;
    u32 packetSize = 0;
    u32 timeout = 1;
    u32 ttl = 64;

    [[nodiscard]] std::string Request() const {
        return std::string(Bytes(target)) + Number(packetSize) + Number(timeout) + Number(ttl) + Number(count) +
               Number(static_cast<u32>(userId));
    }
};

// What comes to the user's listener of one echo.
inline std::string EchoResult(u32 userId, u32 ttl, u32 time, u32 sequence, u32 isLast) {
    return Number(userId) + Number(ttl) + Number(time) + Number(sequence) + Number(isLast);
}

}  // namespace tessel::test
