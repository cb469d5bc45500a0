// The addresses that requests hold.
#pragma once

#include <arpa/inet.h>

#include <cstring>

#include "tessel/gateway.h"
#include "tests/support/daemon.h"

namespace tessel::test {

// Any text that is no address has the family 7, which nobody knows.
inline TNetGateway Address(const char* text) {
    TNetGateway address{};
    address.wSinFamily = strchr(text, ':') != nullptr ? 10 : strchr(text, '.') != nullptr ? 2 : 7;
    (void)inet_pton(address.wSinFamily, text, address.abyAddr);
    return address;
}

}  // namespace tessel::test
