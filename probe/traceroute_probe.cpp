#include "probe/traceroute_probe.h"

#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "core/log.h"
#include "core/wait.h"
#include "tessel/traceroute.h"

namespace tessel {

std::chrono::milliseconds g_probePatience = std::chrono::seconds(5);

const ProbeFamily kProbeInet{.code = TESSEL_FAMILY_INET,
                             .icmp = IPPROTO_ICMP,
                             .hopLevel = IPPROTO_IP,
                             .hopOption = IP_TTL,
                             .socketAddressBytes = sizeof(sockaddr_in),
                             .addressAt = offsetof(sockaddr_in, sin_addr),
                             .addressBytes = sizeof(in_addr),
                             .readAnswer = &ReadIcmpAnswer,
                             .sender = "Tracert4",
                             .receiver = "Recv"};
const ProbeFamily kProbeInet6{.code = TESSEL_FAMILY_INET6,
                              .icmp = IPPROTO_ICMPV6,
                              .hopLevel = IPPROTO_IPV6,
                              .hopOption = IPV6_UNICAST_HOPS,
                              .socketAddressBytes = sizeof(sockaddr_in6),
                              .addressAt = offsetof(sockaddr_in6, sin6_addr),
                              .addressBytes = sizeof(in6_addr),
                              .readAnswer = &ReadIcmpv6Answer,
                              .sender = "Tracert6",
                              .receiver = "Recv6"};

namespace {

constexpr u16 kFirstLocalPort = 32768;
constexpr u16 kLocalPortEnd = 65535;
constexpr std::size_t kPacketBytes = 1500;

// 7 characters and zeros.
constexpr std::array<char, 56> kPayload = {'V', 'E', 'L', 'T', 'R', 'A', 'C'};

// For all running traces.
struct {
    std::mutex lock;
    int ports = 0;
    u16 begin = kFirstLocalPort;
} g_search;

sockaddr_storage AnyAddress(const ProbeFamily& family) {
    sockaddr_storage address{};
    address.ss_family = family.code;
    return address;
}

// Both families have it right after the family code.
void SetPort(sockaddr_storage& address, u16 port) {
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port), "one place for both");
    const u16 portBe = htons(port);
    memcpy(reinterpret_cast<char*>(&address) + offsetof(sockaddr_in, sin_port), &portBe, sizeof(portBe));
}

CallSite SenderOf(const ProbeFamily& family, int line = __builtin_LINE()) {
    return {family.sender, line};
}

CallSite ReceiverOf(const ProbeFamily& family, int line = __builtin_LINE()) {
    return {family.receiver, line};
}

}  // namespace

ProbePort::~ProbePort() {
    if (number_ == 0) return;
    const std::lock_guard lock(g_search.lock);
    if (--g_search.ports == 0) g_search.begin = kFirstLocalPort;
}

bool ProbePort::Bind(int fd, const ProbeFamily& family) {
    sockaddr_storage address = AnyAddress(family);
    const std::lock_guard lock(g_search.lock);
    for (u16 port = g_search.begin; port < kLocalPortEnd; ++port) {
        SetPort(address, port);
        if (bind(fd, reinterpret_cast<const sockaddr*>(&address), family.socketAddressBytes) != 0) continue;
        if (g_search.ports++ == 0) g_search.begin = port;
        number_ = port;
        return true;
    }
    return false;
}

ProbeSockets::ProbeSockets(const ProbeFamily& family, const TNetGateway& target)
    : family_(family), destination_(AnyAddress(family)) {
    memcpy(reinterpret_cast<char*>(&destination_) + family.addressAt, target.abyAddr, family.addressBytes);
    Open();
}

void ProbeSockets::Open() {
    receiver_.Reset(socket(family_.code, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, family_.icmp));
    if (receiver_.IsOpen()) sender_.Reset(socket(family_.code, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!sender_.IsOpen()) {
        LogPerror(SenderOf(family_), "socket error");
        return;
    }
    if (family_.icmp == IPPROTO_ICMPV6) ReadyForIcmpv6();
    if (!port_.Bind(sender_.Get(), family_)) TESSEL_ERR_AT(SenderOf(family_), "no port");
}

void ProbeSockets::ReadyForIcmpv6() const {
    const int on = 1;
    if (setsockopt(receiver_.Get(), IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof(on)) != 0) {
        LogPerror(SenderOf(family_), "setsockopt IPV6_RECVPKTINFO error");
    }
    // Where the checksum is in an ICMPv6 message. At the level of raw sockets: at the IPv6 level the kernel refuses the
    // option for ICMPv6, as RFC 3542 demands.
    constexpr int kRawLevel = 255;
    const int checksumAt = 2;
    if (setsockopt(receiver_.Get(), kRawLevel, IPV6_CHECKSUM, &checksumAt, sizeof(checksumAt)) != 0) {
        LogPerror(SenderOf(family_), "setsockopt error");
    }
}

bool ProbeSockets::SetHops(u32 hops) const {
    const int value = static_cast<int>(hops);
    if (setsockopt(sender_.Get(), family_.hopLevel, family_.hopOption, &value, sizeof(value)) == 0) return true;
    LogPerror(SenderOf(family_), "setsockopt error");
    return false;
}

bool ProbeSockets::Send(u16 targetPort) {
    targetPort_ = targetPort;
    SetPort(destination_, targetPort);
    const ssize_t sent = sendto(sender_.Get(), kPayload.data(), kPayload.size(), 0,
                                reinterpret_cast<const sockaddr*>(&destination_), family_.socketAddressBytes);
    if (sent == static_cast<ssize_t>(kPayload.size())) return true;
    LogPerror(SenderOf(family_), "sendto error");
    return false;
}

std::optional<u32> ProbeSockets::Receive(const Worker& self) {
    const Deadline deadline(g_probePatience);
    // A packet that is not an answer starts the wait again. Somebody could keep us here with a stream of them, hence
    // the first deadline: a probe takes twice the patience at most.
    do {
        switch (WaitReady(receiver_.Get(), POLLIN, Deadline(g_probePatience), self.StopFd())) {
            case Wait::kReady:
                if (const u32 answer = ReceiveOne(); answer != kNoAnswer) return answer;
                break;
            case Wait::kTimeout:
                TESSEL_ERR_AT(ReceiverOf(family_), "select timeout.");
                responder_ = {};
                return TESSEL_TRACE_NO_REPLY;
            case Wait::kStopped:
                return std::nullopt;
            case Wait::kFailed: {
                const int error = errno;
                TESSEL_ERR_AT(ReceiverOf(family_), "select error: (%d) %s", error, strerror(error));
                return TESSEL_TRACE_ERROR;
            }
        }
    } while (!deadline.HasPassed());
    responder_ = {};
    return TESSEL_TRACE_NO_REPLY;
}

u32 ProbeSockets::ReceiveOne() {
    std::array<u8, kPacketBytes> packet;
    socklen_t size = sizeof(responder_);
    const ssize_t count =
        recvfrom(receiver_.Get(), packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&responder_), &size);
    if (count < 0) {
        // What was announced may be gone: a packet with a wrong checksum.
        if (errno != EINTR && errno != EAGAIN) LogPerror(ReceiverOf(family_), "recvfrom error");
        return kNoAnswer;
    }
    const ProbePorts probe{.local = port_.Number(), .target = targetPort_};
    return family_.readAnswer({packet.data(), static_cast<std::size_t>(count)}, probe, ReceiverOf(family_));
}

TNetGateway ProbeSockets::Responder() const {
    TNetGateway address{.wSinFamily = family_.code, .wReserved = 0, .abyAddr = {}};
    memcpy(address.abyAddr, reinterpret_cast<const char*>(&responder_) + family_.addressAt, family_.addressBytes);
    return address;
}

}  // namespace tessel
