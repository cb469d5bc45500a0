#include "probe/broadcast_arp.h"

#include <arpa/inet.h>
#include <netinet/if_ether.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/log.h"
#include "core/netif.h"
#include "core/worker.h"
#include "probe/packet_socket.h"

using std::chrono::seconds;
using tessel::Worker;

namespace {

constexpr int kFramesPerBurst = 3;
constexpr seconds kFrameGap(1);

// As it is on the wire, padded to Ethernet's least size (IEEE 802.3: 60 bytes without the check sequence).
struct AnnouncementFrame {
    ether_header link;
    ether_arp arp;
    u8 padding[18];
};
static_assert(sizeof(AnnouncementFrame) == 60, "no padding between the headers");

// There is only one. The worker and `isRunning` are the API server's; the address is set before the worker runs.
struct {
    bool isRunning = false;
    u32 targetIp = 0;
    Worker worker;
} g_announcer;

AnnouncementFrame MakeFrame(const u8 (&ownMac)[ETH_ALEN], u32 ownIp, u32 targetIp) {
    AnnouncementFrame frame{};
    memset(frame.link.ether_dhost, 0xff, sizeof(frame.link.ether_dhost));
    memcpy(frame.link.ether_shost, ownMac, sizeof(frame.link.ether_shost));
    frame.link.ether_type = htons(ETHERTYPE_ARP);
    frame.arp.ea_hdr = {.ar_hrd = htons(ARPHRD_ETHER),
                        .ar_pro = htons(ETHERTYPE_IP),
                        .ar_hln = ETH_ALEN,
                        .ar_pln = sizeof(ownIp),
                        .ar_op = htons(ARPOP_REQUEST)};
    memcpy(frame.arp.arp_sha, ownMac, sizeof(frame.arp.arp_sha));
    memcpy(frame.arp.arp_spa, &ownIp, sizeof(frame.arp.arp_spa));
    memcpy(frame.arp.arp_tpa, &targetIp, sizeof(frame.arp.arp_tpa));
    return frame;
}

void SendBroadcastArpThread(Worker& self, void* /*session*/) {
    constexpr i32 kFirstEthernet = 0;
    auto seed = static_cast<unsigned>(time(nullptr));
    do {
        (void)SendBroadcastArp(kFirstEthernet, g_announcer.targetIp, self);  // an address may be there next time
    } while (self.Sleep(seconds(tessel::BroadcastArpGap(seed))));
}

}  // namespace

i32 SendBroadcastArp(i32 ethernetNumber, u32 targetIp, const Worker& self) {
    char name[16] = {};
    if (interface_name(ethernetNumber, name, sizeof(name)) != 0) return -1;
    auto sender = tessel::PacketSocket::ForFrames();
    if (!sender.IsOpen()) {
        TESSEL_PERROR("create PF_PACKET socket  failed!");
        return -1;
    }
    u8 mac[ETH_ALEN] = {};
    u32 ip = 0;
    if (IfEthGetHwaddr(name, mac) != 0) {
        TESSEL_ERR("IfEthGetHwaddr failed!");
        return -1;
    }
    if (IfethGetIpv4Addr(name, &ip) != 0) {
        TESSEL_ERR("get ip failed!");
        return -1;
    }
    if (ip == 0) {
        TESSEL_ERR("IfethGetIpAddr error");
        return -1;
    }
    (void)sender.ChooseInterface(name);  // nothing can be sent on one that is gone
    const AnnouncementFrame frame = MakeFrame(mac, ip, targetIp);
    for (int sent = 0; sent < kFramesPerBurst; ++sent) {
        if (!sender.SendFrame(&frame, sizeof(frame))) TESSEL_ERR("sendto ARP failed!");
        if (!self.Sleep(kFrameGap)) return -1;
    }
    return 0;
}

namespace tessel {

unsigned BroadcastArpGap(unsigned& seed) {
    constexpr int kLeast = 180;
    constexpr int kMost = 240;
    return static_cast<unsigned>(rand_r(&seed) % (kMost - kLeast + 1) + kLeast);
}

}  // namespace tessel

i32 BroadcastArpStart(u32 targetIp) {
    if (g_announcer.isRunning) {
        TESSEL_ERR("BroadcastArpStart already started!");
        return 0;
    }
    g_announcer.targetIp = targetIp;
    g_announcer.isRunning = g_announcer.worker.Start("TesselSysBroadcastArpThread", &SendBroadcastArpThread, nullptr);
    if (g_announcer.isRunning) return 0;
    TESSEL_ERR("create broadcast_arp_thread thread failed!");
    return -1;
}

i32 BroadcastArpStop() {
    constexpr seconds kPatience(5);
    if (!g_announcer.isRunning) {
        TESSEL_ERR("BroadcastArpStop already stopped!");
        return 0;
    }
    g_announcer.isRunning = false;
    g_announcer.worker.AskToEnd();
    if (!g_announcer.worker.AwaitEnd(kPatience)) {
        TESSEL_ERR("ThreadKill error!");
        return -1;
    }
    g_announcer.targetIp = 0;
    return 0;
}
