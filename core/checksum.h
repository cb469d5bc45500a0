// The checksum of IP, ICMP, ICMPv6 and UDP (RFC 1071).
#pragma once

#include <netinet/in.h>

#include <initializer_list>
#include <span>

#include "core/types.h"

namespace tessel {

// Over the bytes of the spans as if they were contiguous; an odd last byte is padded with 0. The result has the byte
// order of the bytes themselves and is stored as it is. Over a packet with a correct checksum it is 0.
[[nodiscard]] u16 InternetChecksum(std::initializer_list<std::span<const u8>> parts);

// Of an ICMPv6 message whose own field is 0: with the pseudo header of RFC 8200 in front of it.
[[nodiscard]] u16 Icmpv6Checksum(const in6_addr& source, const in6_addr& destination, std::span<const u8> message);

template <typename Part>
[[nodiscard]] std::span<const u8> BytesOf(const Part& part) {
    return {reinterpret_cast<const u8*>(&part), sizeof(part)};
}

}  // namespace tessel
