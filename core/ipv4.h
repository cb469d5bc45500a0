// IPv4 masks and address classes, for handlers to come: none uses them yet. Addresses and masks are in network byte
// order.
#pragma once

#include "core/types.h"

// Results of IpAddrClassGet.
enum IpAddrClass : i32 {
    kAddrClassA = 1301,
    kAddrClassB = 1302,
    kAddrClassC = 1303,
    kAddrClassMulticast = 1304,
    kAddrClassInvalid = 1305,  // 0.x, 127.x, 240.0.0.0 and above
};

// Result of GatewayInSubnetCheck for a gateway that the interface cannot reach directly.
constexpr i32 kGatewayOutsideSubnet = 1111;

// flag 0: sets *prefixLen to the one bits of *mask counted from the top to the first zero. flag 1: sets *mask to a mask
// of *prefixLen bits. The mask 255.255.255.255 sets the prefix to 32 whatever the flag. Returns 0, or -1 with a log
// line (prefix above 32, any other flag).
i32 MaskConvertIpv4(u32* mask, u32* prefixLen, i32 flag);

// 0 when the one bits are contiguous from the top, else -1.
i32 MaskIsContiguous(u32 mask);

// One of IpAddrClass.
i32 IpAddrClassGet(u32 addr);

// 0 when `gateway` is 0 or in the network of addr/mask, else kGatewayOutsideSubnet.
i32 GatewayInSubnetCheck(u32 addr, u32 mask, u32 gateway);

// -1 when `addr` is the network or broadcast address of its subnet, else 0.
i32 HostAddrCheck(u32 addr, u32 mask);
