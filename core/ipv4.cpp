#include "core/ipv4.h"

#include <arpa/inet.h>

#include <bit>

#include "core/log.h"

namespace {

constexpr u32 kAllOnes = 0xffffffff;
constexpr u32 kMaxPrefix = 32;

u32 MaskOfPrefix(u32 prefixBits) {
    return prefixBits == 0 ? 0 : htonl(kAllOnes << (kMaxPrefix - prefixBits));
}

u32 LeadingOnes(u32 mask) {
    return static_cast<u32>(std::countl_one(ntohl(mask)));
}

}  // namespace

i32 MaskConvertIpv4(u32* mask, u32* prefixLen, i32 flag) {
    if (*mask == kAllOnes) {
        *prefixLen = kMaxPrefix;
        return 0;
    }
    switch (flag) {
        case 0:
            *prefixLen = LeadingOnes(*mask);
            return 0;
        case 1:
            if (*prefixLen > kMaxPrefix) {
                TESSEL_ERR("the network mask(%d) must be less than 32", static_cast<i32>(*prefixLen));
                return -1;
            }
            *mask = MaskOfPrefix(*prefixLen);
            return 0;
        default:
            TESSEL_ERR("don't support the flag(%d)", flag);
            return -1;
    }
}

i32 MaskIsContiguous(u32 mask) {
    return mask == MaskOfPrefix(LeadingOnes(mask)) ? 0 : -1;
}

i32 IpAddrClassGet(u32 addr) {
    const u32 firstByte = ntohl(addr) >> 24;
    if (firstByte >= 1 && firstByte <= 126) return kAddrClassA;
    if (firstByte >= 128 && firstByte <= 191) return kAddrClassB;
    if (firstByte >= 192 && firstByte <= 223) return kAddrClassC;
    if (firstByte < 224 || firstByte > 239) return kAddrClassInvalid;
    return kAddrClassMulticast;
}

i32 GatewayInSubnetCheck(u32 addr, u32 mask, u32 gateway) {
    if (gateway == 0 || (addr & mask) == (gateway & mask)) return 0;
    return kGatewayOutsideSubnet;
}

i32 HostAddrCheck(u32 addr, u32 mask) {
    const u32 hostPart = addr & ~mask;
    return hostPart == 0 || hostPart == ~mask ? -1 : 0;
}
