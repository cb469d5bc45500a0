// Sending on a link below IP: the kernel puts the Ethernet header in front.
#pragma once

#include <linux/if_packet.h>

#include "core/call_site.h"
#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel {

constexpr u8 kBroadcastMac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// One socket for one interface and protocol.
class PacketSocket {
  public:
    // `protocol` is an ETH_P_ number, host byte order. Failures are logged in the caller's name.
    PacketSocket(const char* interfaceName, u16 protocol, CallSite where);

    [[nodiscard]] bool IsOpen() const {
        return fd_.IsOpen();
    }

    // `packetType` is a PACKET_ number. True when all bytes went out.
    [[nodiscard]] bool Send(const u8 (&mac)[6], u8 packetType, const void* data, std::size_t size) const;

  private:
    u16 protocol_;
    i32 interfaceIndex_;
    UniqueFd fd_;
};

}  // namespace tessel
