// Address families: the two that are served, how each is written, and addresses as text.
#pragma once

#include <arpa/inet.h>

#include "core/types.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"

namespace tessel {

struct AddressFamily {
    u16 code;
    const char* option;   // of `ip`
    const char* keyword;  // in front of an address in what `ip` prints
    i32 hostPrefixLength;
};
constexpr AddressFamily kInet{TESSEL_FAMILY_INET, "-4", "inet ", 32};
constexpr AddressFamily kInet6{TESSEL_FAMILY_INET6, "-6", "inet6 ", 128};

// Null for any other code, TESSEL_FAMILY_BOTH included.
[[nodiscard]] constexpr const AddressFamily* FindFamily(u16 code) {
    if (code == kInet.code) return &kInet;
    return code == kInet6.code ? &kInet6 : nullptr;
}

// An address as people and tools write it; empty for an unknown family.
struct AddressText {
    // `address` has 4 or 16 bytes in network order.
    AddressText(u16 family, const void* address) {
        (void)inet_ntop(family, address, text, sizeof(text));
    }
    explicit AddressText(const TNetGateway& address) : AddressText(address.wSinFamily, &address.abyAddr) {}
    char text[INET6_ADDRSTRLEN] = {};
};

// True for the text of an address of this family, and nothing else: no host name, no prefix length, no scope.
[[nodiscard]] inline bool IsAddressText(const AddressFamily& family, const char* text) {
    u8 address[16];
    return inet_pton(family.code, text, address) == 1;
}

}  // namespace tessel
