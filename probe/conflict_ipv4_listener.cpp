// The thread that listens to all ARP traffic.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "core/log.h"
#include "core/unique_fd.h"
#include "probe/announcer.h"
#include "probe/arp.h"
#include "probe/conflict.h"
#include "probe/conflict_ipv4.h"
#include "probe/conflict_report.h"

using tessel::CallSite;

namespace {

constexpr std::size_t kReceiveBytes = 2048;

void Report(u32 type, const TNetConflictReport& report, CallSite where) {
    tessel::SendReport(TESSEL_SOCKET_IP_CONFLICT, type, report, where);
    g_nConflictConfirmCount = tessel::kConfirmRounds;
}

// The table stays locked while the application is told, so that both reports of one packet stand together.
void Check(const char* interfaceName, const ether_arp& arp, CallSite where) {
    const tessel::NetdevTableLock lock;
    TNetConflictReport report{};
    const i32 ipResult = CheckIpConflict(g_ptNetdevMember, interfaceName, &arp, &report);
    report.tAddr.wSinFamily = TESSEL_FAMILY_INET;
    if (ipResult == TESSEL_CONFLICT_IP && g_nIpv4ConflictReport != 0) Report(TESSEL_CONFLICT_IP, report, where);
    const i32 macResult = CheckMacConflict(g_ptNetdevMember, interfaceName, &arp, &report);
    if (macResult == TESSEL_CONFLICT_MAC && g_nIpv4ConflictReport != 0) Report(TESSEL_CONFLICT_MAC, report, where);
}

// False for what is no ARP packet of an Ethernet-like link.
bool IsOfInterest(const sockaddr_ll& source, ssize_t size, const ether_arp& arp) {
    if (size < static_cast<ssize_t>(sizeof(arp))) return false;
    if (source.sll_pkttype > PACKET_OTHERHOST && source.sll_hatype != ARPHRD_ETHER) return false;
    return IsValidateArp(arp) != 0;
}

}  // namespace

void RecvNetPacket(void* /*unused*/) {
    const tessel::UniqueFd listener(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ARP)));
    if (!listener.IsOpen()) {
        TESSEL_PERROR("socket error!");
        return;
    }
    ifreq interface {};  // keeps the last name: an interface that has just gone counts as the one before
    while (true) {
        alignas(ether_arp) u8 packet[kReceiveBytes] = {};
        sockaddr_ll source{};
        socklen_t sourceSize = sizeof(source);
        const ssize_t size =
            recvfrom(listener.Get(), packet, sizeof(packet), 0, reinterpret_cast<sockaddr*>(&source), &sourceSize);
        if (size <= 0) {
            TESSEL_ERR("Failed to recv packet.");
            sleep(1);  // an error that stays would fill the log
            continue;
        }
        ether_arp arp;
        memcpy(&arp, packet, sizeof(arp));
        if (!IsOfInterest(source, size, arp)) continue;
        interface.ifr_ifindex = source.sll_ifindex;
        if (ioctl(listener.Get(), SIOCGIFNAME, &interface) != 0) {
            TESSEL_PERROR("ioctl error");
        }
        Check(interface.ifr_name, arp, CallSite::Current());
    }
}
