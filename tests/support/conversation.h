// One request, the tools that it makes the daemon run, and its reply.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tessel/gateway.h"
#include "tessel/service.h"
#include "tests/support/daemon.h"

namespace tessel::test {

struct Conversation {
    const char* description;
    u32 type;
    std::string request;
    std::vector<std::string> expectedRuns;
    i32 expectedStatus;
    std::size_t expectedReplyBytes;
};

inline void Check(const Conversation& row, StandInTools& tools) {
    const auto reply = Request(row.type, row.request);
    ASSERT_TRUE(reply.has_value()) << row.description;
    EXPECT_EQ(reply->size(), row.expectedReplyBytes) << row.description;
    i32 status = 0;
    memcpy(&status, reply->data(), sizeof(status));
    EXPECT_EQ(status, row.expectedStatus) << row.description;
    EXPECT_THAT(tools.TakeRuns(), testing::ElementsAreArray(row.expectedRuns)) << row.description;
}

// Requests that are a name alone.
inline std::string Name(const char* name) {
    TNetServiceStopReq request{};
    strncpy(request.achServiceName, name, sizeof(request.achServiceName));
    return std::string(Bytes(request));
}

// Any text that is no address has the family 7, which nobody knows.
inline TNetGateway Address(const char* text) {
    TNetGateway address{};
    address.wSinFamily = strchr(text, ':') != nullptr ? 10 : strchr(text, '.') != nullptr ? 2 : 7;
    (void)inet_pton(address.wSinFamily, text, address.abyAddr);
    return address;
}

}  // namespace tessel::test
