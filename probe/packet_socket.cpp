#include "probe/packet_socket.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "core/log.h"
#include "core/netif.h"

using tessel::AskInterface;
using tessel::InterfaceAnswer;

i32 FindIndex(const char* name) {
    ifreq answer{};
    const InterfaceAnswer result =
        AskInterface(name, SIOCGIFINDEX, answer, {.noSocket = "socket", .refused = "ioctl error:"});
    return result == InterfaceAnswer::kAnswered ? answer.ifr_ifindex : -1;
}

namespace tessel {

PacketSocket::PacketSocket(const char* interfaceName, u16 protocol, CallSite where)
    : protocol_(htons(protocol)), interfaceIndex_(FindIndex(interfaceName)) {
    if (interfaceIndex_ < 0) return;
    fd_.Reset(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));  // 0: nothing is to be received
    if (!fd_.IsOpen()) TESSEL_ERR_AT(where, "Socket failed error!");
}

PacketSocket PacketSocket::ForFrames() {
    PacketSocket sender;
    sender.fd_.Reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    return sender;
}

bool PacketSocket::ChooseInterface(const char* name) {
    interfaceIndex_ = static_cast<i32>(if_nametoindex(name));
    return interfaceIndex_ != 0;
}

bool PacketSocket::Send(const u8 (&mac)[6], u8 packetType, const void* data, std::size_t size) const {
    sockaddr_ll destination{};
    destination.sll_protocol = protocol_;
    destination.sll_hatype = ARPHRD_ETHER;
    destination.sll_pkttype = packetType;
    destination.sll_halen = sizeof(mac);
    memcpy(destination.sll_addr, mac, sizeof(mac));
    return SendTo(destination, data, size);
}

bool PacketSocket::SendFrame(const void* frame, std::size_t size) const {
    return SendTo({}, frame, size);
}

bool PacketSocket::SendTo(sockaddr_ll destination, const void* data, std::size_t size) const {
    destination.sll_family = AF_PACKET;
    destination.sll_ifindex = interfaceIndex_;
    return sendto(fd_.Get(), data, size, 0, reinterpret_cast<const sockaddr*>(&destination), sizeof(destination)) ==
           static_cast<ssize_t>(size);
}

}  // namespace tessel
