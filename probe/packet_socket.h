// Sending on a link below IP.
#pragma once

#include <netpacket/packet.h>

#include "core/call_site.h"
#include "core/types.h"
#include "core/unique_fd.h"

// The interface's index, or -1 with a log line.
[[nodiscard]] i32 FindIndex(const char* name);

namespace tessel {

constexpr u8 kBroadcastMac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// One socket for one interface, which sends either payloads or whole frames and receives nothing.
class PacketSocket {
  public:
    // For payloads, in front of which the kernel puts the Ethernet header. `protocol` is an ETH_P_ number, host byte
    // order. Failures are logged in the caller's name.
    PacketSocket(const char* interfaceName, u16 protocol, CallSite where);

    // For whole frames, on an interface that is still to be chosen. Nothing is logged: when it is not open, or the
    // interface does not exist, errno says why.
    [[nodiscard]] static PacketSocket ForFrames();
    [[nodiscard]] bool ChooseInterface(const char* name);

    [[nodiscard]] bool IsOpen() const {
        return fd_.IsOpen();
    }

    // Sends a payload; `packetType` is a PACKET_ number. True when all bytes went out.
    [[nodiscard]] bool Send(const u8 (&mac)[6], u8 packetType, const void* data, std::size_t size) const;

    // Sends a frame that begins with its Ethernet header. True when all bytes went out; else errno says why.
    [[nodiscard]] bool SendFrame(const void* frame, std::size_t size) const;

  private:
    PacketSocket() = default;
    [[nodiscard]] bool SendTo(sockaddr_ll destination, const void* data, std::size_t size) const;

    u16 protocol_ = 0;  // network byte order
    i32 interfaceIndex_ = 0;
    UniqueFd fd_;
};

}  // namespace tessel
