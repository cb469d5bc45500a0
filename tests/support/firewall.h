// Requests of the firewall, byte by byte.
#pragma once

#include <arpa/inet.h>

#include "tests/support/daemon.h"

namespace tessel::test {

inline std::string Chain(u16 protocols, const std::string& name) {
    return std::string(Bytes(protocols)) + name;
}

// An entry of a list; 0xee lies in what is not read.
inline std::string Network(u32 operation, u16 family, const char* start, u32 prefix, const char* end = "") {
    char first[16] = {};
    char last[16] = {};
    inet_pton(family, start, first);
    inet_pton(family, end, last);
    const std::string gap(24, '\xee');
    return Number(operation) + gap.substr(0, 4) + Number(family) + std::string(first, 16) + Number(prefix) +
           gap.substr(0, 16) + std::string(last, 16) + gap;
}

inline std::string Ports(u32 operation, u32 inet, u32 protocol, u32 portType, u32 action, const char* ports) {
    return Number(operation) + Number(inet) + Number(protocol) + Number(portType) + Number(action) + Padded(ports, 136);
}

inline std::string Arp(const char* device, const char* mac, const char* ip) {
    return Padded(device, 16) + Padded(mac, 32) + Padded(ip, 64);
}

}  // namespace tessel::test
