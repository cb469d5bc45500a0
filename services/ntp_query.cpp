#include "services/ntp_query.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "core/log.h"

using tessel::CallSite;
using tessel::ClockTime;
using tessel::NtpPacket;

namespace {

constexpr i64 kMicrosecondsPerSecond = 1000000;

// From 1900, where NTP begins to count, to 1970.
constexpr i64 kNtpToUnixSeconds = 2208988800;

// Where the timestamps are: seconds and 2^-32 seconds.
constexpr std::size_t kOriginateAt = 24;
constexpr std::size_t kReceiveAt = 32;
constexpr std::size_t kTransmitAt = 40;

void StoreWord(NtpPacket& packet, std::size_t at, u32 value) {
    value = htonl(value);
    memcpy(&packet[at], &value, sizeof(value));
}

u32 WordAt(const NtpPacket& packet, std::size_t at) {
    u32 value = 0;
    memcpy(&value, &packet[at], sizeof(value));
    return ntohl(value);
}

// By shifts instead of a division: the first is right to a microsecond, the second to 0.4 ms.
u32 FractionOf(i32 microseconds) {
    const auto value = static_cast<u32>(microseconds);
    return 4294 * value + ((1981 * value) >> 11);
}

i64 MicrosecondsOf(u32 fraction) {
    return i64{fraction >> 12} - 759 * i64{((fraction >> 10) + 0x8000) >> 16};
}

i64 UnixMicroseconds(const NtpPacket& packet, std::size_t at) {
    return (i64{WordAt(packet, at)} - kNtpToUnixSeconds) * kMicrosecondsPerSecond +
           MicrosecondsOf(WordAt(packet, at + 4));
}

ClockTime Split(i64 microseconds) {
    return {.seconds = microseconds / kMicrosecondsPerSecond,
            .microseconds = static_cast<i32>(microseconds % kMicrosecondsPerSecond)};
}

template <typename Address>
i32 Connect(int fd, const Address& address, CallSite where) {
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return 0;
    const int error = errno;
    TESSEL_ERR_AT(where, "connect failed! errno: (%d) %s", error, strerror(error));
    return -1;
}

}  // namespace

namespace tessel {

NtpPacket NtpRequest(const ClockTime& now) {
    constexpr u32 kHead = 0x1B0004FA;  // no leap second, version 3, client; stratum 0, poll 2^4 s, precision 2^-6 s
    constexpr u32 kOneSecond = 0x00010000;
    NtpPacket packet{};
    StoreWord(packet, 0, kHead);
    StoreWord(packet, 4, kOneSecond);  // root delay
    StoreWord(packet, 8, kOneSecond);  // root dispersion
    StoreWord(packet, kTransmitAt, static_cast<u32>(now.seconds + kNtpToUnixSeconds));
    StoreWord(packet, kTransmitAt + 4, FractionOf(now.microseconds));
    return packet;
}

NtpQueryResult EvaluateNtpReply(const NtpPacket& reply, const ClockTime& arrival, CallSite where) {
    const i64 arrivalPart = MicrosecondsOf(FractionOf(arrival.microseconds));
    const i64 t1 = UnixMicroseconds(reply, kOriginateAt);
    const i64 t2 = UnixMicroseconds(reply, kReceiveAt);
    const i64 t3 = UnixMicroseconds(reply, kTransmitAt);
    const i64 t4 = arrival.seconds * kMicrosecondsPerSecond + arrivalPart;
    NtpQueryResult result{
        .delay = Split((t2 - t1) + (t4 - t3)), .offset = Split(((t2 - t1) + (t3 - t4)) / 2), .corrected = {}};
    i64 seconds = arrival.seconds + result.offset.seconds;
    i64 microseconds = arrivalPart + result.offset.microseconds;
    if (microseconds >= kMicrosecondsPerSecond) {
        TESSEL_PRT_AT(where, "usec >= 1000000, change it");
        ++seconds;
        microseconds -= kMicrosecondsPerSecond;
    } else if (microseconds < 0) {
        TESSEL_PRT_AT(where, "usec < 0, change it");
        --seconds;
        microseconds += kMicrosecondsPerSecond;
    }
    result.corrected = {.seconds = seconds, .microseconds = static_cast<i32>(microseconds)};
    return result;
}

}  // namespace tessel

tessel::UniqueFd CreateSocket(u16 family) {
    tessel::UniqueFd fd(socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.IsOpen()) {
        const int error = errno;
        TESSEL_ERR("create socket failed! errno: (%d) %s", error, strerror(error));
    }
    return fd;
}

i32 ConnServer(int fd, const TNetGateway& server, u16 port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    memcpy(&address.sin_addr, server.abyAddr, sizeof(address.sin_addr));
    return Connect(fd, address, CallSite::Current());
}

i32 ConnServer6(int fd, const TNetGateway& server, u16 port) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    memcpy(&address.sin6_addr, server.abyAddr, sizeof(address.sin6_addr));
    return Connect(fd, address, CallSite::Current());
}

i32 SendPacket(int fd) {
    const NtpPacket request = tessel::NtpRequest(tessel::ClockNow());
    if (send(fd, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size())) return 0;
    const int error = errno;
    TESSEL_ERR("send packet to ntp server failed! errno: (%d) %s", error, strerror(error));
    return -1;
}

i32 GetServerTime(int fd, tessel::NtpQueryResult& result) {
    NtpPacket reply{};
    const ssize_t count = recvfrom(fd, reply.data(), reply.size(), 0, nullptr, nullptr);
    const int error = errno;
    if (count < 0) {
        TESSEL_ERR("recvfrom was failed! errno: (%d) %s", error, strerror(error));
        return 0;
    }
    if (count == 0) {
        TESSEL_ERR("recvfrom receive 0! errno: (%d) %s", error, strerror(error));
        return 0;
    }
    result = EvaluateNtpReply(reply, tessel::ClockNow(), CallSite::Current());
    return 1;
}
