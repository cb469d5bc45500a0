// Neighbour discovery messages (RFC 4861) as conflict detection sends and reads them. MACs have 6 bytes.
#pragma once

#include <netinet/icmp6.h>
#include <netinet/in.h>

#include <optional>
#include <span>

#include "core/types.h"

namespace tessel {

// Asks whether another host has the address, in the form of duplicate address detection (RFC 4862): from the
// unspecified address to the solicited-node group, without a source link-layer option. A failure is logged.
void SendDadSolicitation(const char* name, const in6_addr& target);

struct NeighbourMessage {
    bool isAdvertisement;  // else a solicitation
    in6_addr target;
    std::optional<std::span<const u8, 6>> linkAddress;  // of the sender or target, within the bytes read
};

// Where a message came from and went to.
struct NeighbourPath {
    in6_addr source;
    in6_addr destination;
    int hopLimit;
};

// Reads an ICMPv6 message whose checksum has been verified. Nothing for what RFC 4861 (7.1.1, 7.1.2) requires a node to
// discard.
[[nodiscard]] std::optional<NeighbourMessage> ReadNeighbourMessage(std::span<const u8> bytes,
                                                                   const NeighbourPath& path);

}  // namespace tessel
