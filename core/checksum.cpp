#include "core/checksum.h"

#include <arpa/inet.h>

namespace tessel {

u16 InternetChecksum(std::initializer_list<std::span<const u8>> parts) {
    u64 sum = 0;
    bool isLowByte = false;
    for (const std::span<const u8> part : parts) {
        for (const u8 byte : part) {
            sum += isLowByte ? byte : static_cast<u64>(byte) << 8;
            isLowByte = !isLowByte;
        }
    }
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    return htons(static_cast<u16>(~sum));
}

u16 Icmpv6Checksum(const in6_addr& source, const in6_addr& destination, std::span<const u8> message) {
    const u32 lengthAndProtocol[] = {htonl(static_cast<u32>(message.size())), htonl(IPPROTO_ICMPV6)};
    return InternetChecksum({BytesOf(source), BytesOf(destination), BytesOf(lengthAndProtocol), message});
}

}  // namespace tessel
