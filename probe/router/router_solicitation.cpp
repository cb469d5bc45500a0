#include "probe/router/router_solicitation.h"

#include <arpa/inet.h>
#include <net/ethernet.h>
#include <netinet/icmp6.h>
#include <netinet/ip6.h>

#include <cerrno>
#include <cstring>

#include "addr/mac.h"
#include "core/checksum.h"
#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "probe/packet_socket.h"

using tessel::BytesOf;
using tessel::kLinkAddrMax;

namespace {

constexpr char kShowLinkLocal[] = "ip ip -6 addr show dev %s scope link";
constexpr char kAddressKey[] = "inet6 ";

constexpr u8 kHopLimit = 255;  // proves that no router is in between
constexpr u8 kAllRoutersMac[ETH_ALEN] = {0x33, 0x33, 0, 0, 0, 2};
constexpr in6_addr kAllRouters{{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}}};

// As it is on the wire, without options.
struct [[gnu::packed]] SolicitationFrame {
    ether_header link;
    ip6_hdr ip;
    nd_router_solicit message;
};
static_assert(sizeof(SolicitationFrame) == 62, "no padding between the headers");

SolicitationFrame MakeFrame(const u8 (&mac)[ETH_ALEN], const in6_addr& source) {
    ether_header link{};
    memcpy(link.ether_dhost, kAllRoutersMac, sizeof(link.ether_dhost));
    memcpy(link.ether_shost, mac, sizeof(link.ether_shost));
    link.ether_type = htons(ETHERTYPE_IPV6);
    nd_router_solicit message{};
    message.nd_rs_type = ND_ROUTER_SOLICIT;
    message.nd_rs_cksum = tessel::Icmpv6Checksum(source, kAllRouters, BytesOf(message));
    ip6_hdr ip{};
    ip.ip6_flow = htonl(6U << 28);
    ip.ip6_plen = htons(sizeof(message));
    ip.ip6_nxt = IPPROTO_ICMPV6;
    ip.ip6_hlim = kHopLimit;
    ip.ip6_src = source;
    ip.ip6_dst = kAllRouters;
    return {.link = link, .ip = ip, .message = message};
}

void LogFailure(const char* call, tessel::CallSite where = tessel::CallSite::Current()) {
    const int error = errno;
    TESSEL_ERR_AT(where, "%s error , errno %d : %s", call, error, strerror(error));
}

}  // namespace

void SendRsPacket(const char* pchIface) {
    if (pchIface == nullptr) {
        TESSEL_ERR("pchIface or pchDestAddr6 is NULL!");
        return;
    }
    char text[kLinkAddrMax + 1];
    in6_addr source{};
    if (GetLinkAddr(pchIface, text) != 0 || inet_pton(AF_INET6, text, &source) != 1) {
        TESSEL_ERR("get link addr fail");
        return;
    }
    TESSEL_PRT("%s link addr is %s", pchIface, text);
    u8 mac[ETH_ALEN] = {};
    if (MacaddrGet(pchIface, mac) != 0) {
        TESSEL_ERR("get mac fail");
        return;
    }
    const SolicitationFrame frame = MakeFrame(mac, source);
    auto sender = tessel::PacketSocket::ForFrames();
    if (!sender.IsOpen()) return LogFailure("socket");
    if (!sender.ChooseInterface(pchIface)) return LogFailure("ioctl");
    TESSEL_DBG("IcmpChecksum = [%02x].", ntohs(frame.message.nd_rs_cksum));
    if (!sender.SendFrame(&frame, sizeof(frame))) return LogFailure("sendto");
    TESSEL_PRT("sendto ok!");
}

i32 GetLinkAddr(const char* pchIface, char* address) {
    if (pchIface == nullptr || address == nullptr) {
        TESSEL_ERR("pchGateWay NULL!");
        return -1;
    }
    tessel::CommandLine command;
    if (!tessel::IsLineWord(pchIface) || !ComposeCommand(command, kShowLinkLocal, pchIface)) return -1;
    TESSEL_DBG("GetLinkAddr cmd : %s", command.text);
    tessel::ToolOutput output;
    if (tessel::RunReader(command, output) != 0) return -1;
    if (TesselFindStrMatchHead(output.text, kAddressKey, '/', address, kLinkAddrMax) == 0) return 0;
    TESSEL_ERR("FindStrMatchHead error!");
    return -1;
}
