#include "probe/packet_socket.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <cstring>

#include "core/log.h"
#include "probe/interface.h"

namespace tessel {

PacketSocket::PacketSocket(const char* interfaceName, u16 protocol, CallSite where)
    : protocol_(htons(protocol)), interfaceIndex_(FindIndex(interfaceName)) {
    if (interfaceIndex_ < 0) return;
    fd_.Reset(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));  // 0: nothing is to be received
    if (!fd_.IsOpen()) TESSEL_ERR_AT(where, "Socket failed error!");
}

bool PacketSocket::Send(const u8 (&mac)[6], u8 packetType, const void* data, std::size_t size) const {
    sockaddr_ll destination{};
    destination.sll_family = AF_PACKET;
    destination.sll_protocol = protocol_;
    destination.sll_ifindex = interfaceIndex_;
    destination.sll_hatype = ARPHRD_ETHER;
    destination.sll_pkttype = packetType;
    destination.sll_halen = sizeof(mac);
    memcpy(destination.sll_addr, mac, sizeof(mac));
    return sendto(fd_.Get(), data, size, 0, reinterpret_cast<const sockaddr*>(&destination), sizeof(destination)) ==
           static_cast<ssize_t>(size);
}

}  // namespace tessel
