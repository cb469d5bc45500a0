#include "probe/icmp_answer.h"

#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>

#include "core/log.h"
#include "tessel/traceroute.h"

namespace tessel {

namespace {

constexpr std::size_t kIcmpBytes = 8;  // the header of either family
constexpr std::size_t kIpBytes = 20;   // an IPv4 header without options
constexpr std::size_t kPortsBytes = 4;

std::size_t HeaderBytes(std::span<const u8> ip) {
    return std::size_t{4} * (ip[0] & 0x0fU);  // RFC 791: in words of 32 bits
}

u16 PortAt(std::span<const u8> bytes, std::size_t at) {
    return static_cast<u16>(bytes[at] << 8 | bytes[at + 1]);
}

// RFC 792: the ICMP header is followed by the IP header of the packet that caused the error and its first 8 bytes.
bool QuotesProbe(std::span<const u8> icmp, const ProbePorts& probe) {
    if (icmp.size() < kIcmpBytes + kIpBytes) return false;
    const std::span<const u8> ip = icmp.subspan(kIcmpBytes);
    const std::size_t ipBytes = HeaderBytes(ip);
    if (ip.size() < ipBytes + kPortsBytes) return false;
    constexpr std::size_t kProtocolAt = 9;
    return ip[kProtocolAt] == IPPROTO_UDP && PortAt(ip, ipBytes) == probe.local &&
           PortAt(ip, ipBytes + 2) == probe.target;
}

u32 ReadUnreachable(u8 code, u8 portUnreachable, CallSite where) {
    if (code == portUnreachable) return TESSEL_TRACE_REACHED;
    TESSEL_PRT_AT(where, "pIcmp->icmp_code = [%d]", code);
    return TESSEL_TRACE_REFUSED;
}

}  // namespace

u32 ReadIcmpAnswer(std::span<const u8> packet, const ProbePorts& probe, CallSite where) {
    if (packet.empty() || packet.size() < HeaderBytes(packet) + kIcmpBytes) return kNoAnswer;
    const std::span<const u8> icmp = packet.subspan(HeaderBytes(packet));
    const u8 type = icmp[0];
    const u8 code = icmp[1];
    const bool isHop = type == ICMP_TIME_EXCEEDED && code == ICMP_EXC_TTL;
    if ((!isHop && type != ICMP_DEST_UNREACH) || !QuotesProbe(icmp, probe)) return kNoAnswer;
    if (isHop) return TESSEL_TRACE_HOP;
    return ReadUnreachable(code, ICMP_PORT_UNREACH, where);
}

u32 ReadIcmpv6Answer(std::span<const u8> message, const ProbePorts& /*probe*/, CallSite where) {
    if (message.size() < kIcmpBytes) return kNoAnswer;
    const u8 type = message[0];
    const u8 code = message[1];
    TESSEL_PRT_AT(where, "icmp type = %d", type);
    if (type == ICMP6_TIME_EXCEEDED && code == ICMP6_TIME_EXCEED_TRANSIT) return TESSEL_TRACE_HOP;
    if (type != ICMP6_DST_UNREACH) return kNoAnswer;
    return ReadUnreachable(code, ICMP6_DST_UNREACH_NOPORT, where);
}

}  // namespace tessel
