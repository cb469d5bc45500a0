#include "probe/conflict/ndp.h"

#include <arpa/inet.h>
#include <net/ethernet.h>
#include <netinet/ip6.h>

#include <cstring>

#include "core/checksum.h"
#include "core/log.h"
#include "probe/packet_socket.h"

namespace tessel {

namespace {

constexpr u8 kHopLimit = 255;  // proves that no router is in between
constexpr std::size_t kOptionUnit = 8;

struct Solicitation {
    ip6_hdr ip;
    nd_neighbor_solicit message;
};
static_assert(sizeof(Solicitation) == 64, "no padding between the headers");

in6_addr SolicitedNodeGroup(const in6_addr& target) {
    in6_addr group{{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0xff}}};
    memcpy(&group.s6_addr[13], &target.s6_addr[13], 3);
    return group;
}

// Walks the options. False when one has no length or reaches beyond the end.
bool ReadOptions(std::span<const u8> options, u8 wanted, NeighbourMessage& message) {
    while (options.size() >= 2) {
        const std::size_t size = options[1] * kOptionUnit;
        if (size == 0 || size > options.size()) return false;
        if (options[0] == wanted && size == kOptionUnit) message.linkAddress = options.subspan(2).first<6>();
        options = options.subspan(size);
    }
    return options.empty();
}

}  // namespace

void SendDadSolicitation(const char* name, const in6_addr& target) {
    const PacketSocket sender(name, ETHERTYPE_IPV6, CallSite::Current());
    if (!sender.IsOpen()) return;
    Solicitation packet{};
    packet.ip.ip6_flow = htonl(6U << 28);
    packet.ip.ip6_plen = htons(sizeof(packet.message));
    packet.ip.ip6_nxt = IPPROTO_ICMPV6;
    packet.ip.ip6_hlim = kHopLimit;
    packet.ip.ip6_dst = SolicitedNodeGroup(target);
    packet.message.nd_ns_type = ND_NEIGHBOR_SOLICIT;
    packet.message.nd_ns_target = target;
    packet.message.nd_ns_cksum = Icmpv6Checksum(packet.ip.ip6_src, packet.ip.ip6_dst, BytesOf(packet.message));
    const u8* const tail = &target.s6_addr[13];
    const u8 group[6] = {0x33, 0x33, 0xff, tail[0], tail[1], tail[2]};  // RFC 2464
    if (!sender.Send(group, PACKET_MULTICAST, &packet, sizeof(packet))) {
        TESSEL_ERR("Failed to send neighbour solicitation!");
    }
}

std::optional<NeighbourMessage> ReadNeighbourMessage(std::span<const u8> bytes, const NeighbourPath& path) {
    // Solicitation and advertisement have the same layout up to their options.
    nd_neighbor_advert header;
    if (bytes.size() < sizeof(header) || path.hopLimit != kHopLimit) return std::nullopt;
    memcpy(&header, bytes.data(), sizeof(header));
    const bool isAdvertisement = header.nd_na_type == ND_NEIGHBOR_ADVERT;
    if ((!isAdvertisement && header.nd_na_type != ND_NEIGHBOR_SOLICIT) || header.nd_na_code != 0 ||
        IN6_IS_ADDR_MULTICAST(&header.nd_na_target)) {
        return std::nullopt;
    }
    NeighbourMessage message{.isAdvertisement = isAdvertisement, .target = header.nd_na_target, .linkAddress = {}};
    const u8 wanted = isAdvertisement ? ND_OPT_TARGET_LINKADDR : ND_OPT_SOURCE_LINKADDR;
    if (!ReadOptions(bytes.subspan(sizeof(header)), wanted, message)) return std::nullopt;
    const bool toGroup = IN6_IS_ADDR_MULTICAST(&path.destination);
    if (isAdvertisement && toGroup && (header.nd_na_flags_reserved & ND_NA_FLAG_SOLICITED) != 0) return std::nullopt;
    if (!isAdvertisement && IN6_IS_ADDR_UNSPECIFIED(&path.source)) {
        const in6_addr group = SolicitedNodeGroup(message.target);
        const bool toTarget = memcmp(path.destination.s6_addr, group.s6_addr, 13) == 0;  // any solicited-node group
        if (!toTarget || message.linkAddress) return std::nullopt;
    }
    return message;
}

}  // namespace tessel
