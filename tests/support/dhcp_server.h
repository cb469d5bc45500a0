// Requests of the DHCP server's commands.
#pragma once

#include <arpa/inet.h>

#include "tessel/dhcp.h"
#include "tests/support/daemon.h"

namespace tessel::test {

constexpr u32 kStart = 0x801;
constexpr u32 kStop = 0x802;
constexpr u32 kGetStatus = 0x804;
constexpr u32 kStopAll = 0x805;

inline std::string NameRequest(const char* interfaceName, u16 family = 2) {
    return Padded(interfaceName, 16).append(Bytes(family));
}

inline TNetDhcpsConf ServerConf(u32 prefixBits = 24, const std::vector<const char*>& dnsServers = {}) {
    const auto address = [](const char* text) {
        TNetGateway record{.wSinFamily = 0xFFFF, .wReserved = 0xFFFF, .abyAddr = {}};  // of which neither is read
        inet_pton(AF_INET, text, &record.abyAddr);
        return record;
    };
    TNetDhcpsConf conf{};
    conf.tStart = address("10.9.0.20");
    conf.tEnd = address("10.9.0.21");
    conf.dwPrefixLen = prefixBits;
    conf.tRouter = address("10.9.0.1");
    conf.dwDnsNum = static_cast<u32>(dnsServers.size());
    for (std::size_t i = 0; i < dnsServers.size(); ++i)
        conf.atDns[i] = address(dnsServers[i]);
    return conf;
}

inline std::string StartRequest(const char* interfaceName, const TNetDhcpsConf& conf = ServerConf(), u16 family = 2) {
    return NameRequest(interfaceName, family).append(Bytes(conf));
}

}  // namespace tessel::test
