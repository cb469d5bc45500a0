// The hosts at the other end of the sandbox's links, in the network namespace "far".
#pragma once

#include <fcntl.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <sched.h>

#include <array>
#include <cstdlib>

#include "tests/support/daemon.h"

namespace tessel::test {

inline void RunOnDevice(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// What a command prints on standard output.
inline std::string OutputOf(const std::string& command) {
    return ReadAll(popen(command.c_str(), "re"), &pclose);
}

// Does something within the namespace of the far hosts.
template <typename Work>
void OnFarSide(Work work) {
    std::thread([&] {
        const UniqueFd space(open("/run/netns/far", O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(setns(space.Get(), CLONE_NEWNET), 0);
        work();
    }).join();
}

// On this port of all addresses; one of streams listens. One that is alone leaves IPv4 to another.
inline UniqueFd BoundTo(u16 port, u16 family, int type = SOCK_STREAM, int isAlone = 0) {
    UniqueFd fd(socket(family, type | SOCK_CLOEXEC, 0));
    (void)setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &isAlone, sizeof(isAlone));
    sockaddr_in6 any{};  // that of IPv4 begins like it: family and port
    any.sin6_family = family;
    any.sin6_port = htons(port);
    EXPECT_EQ(bind(fd.Get(), reinterpret_cast<const sockaddr*>(&any), sizeof(any)), 0);
    EXPECT_EQ(listen(fd.Get(), 1) == 0, type == SOCK_STREAM);
    return fd;
}

// Whole Ethernet frames at the far end of a link.
class FarLink {
  public:
    // `protocol` is an ETH_P_ number: what is received.
    FarLink(const char* farInterface, u16 protocol) {
        OnFarSide([&] {
            fd_.Reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(protocol)));
            sockaddr_ll address{};
            address.sll_family = AF_PACKET;
            address.sll_protocol = htons(protocol);
            address.sll_ifindex = static_cast<int>(if_nametoindex(farInterface));
            ASSERT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        });
    }

    void Send(std::string_view frame) const {
        ASSERT_EQ(send(fd_.Get(), frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
    }

    // The next frame that came from the device's side; empty when none came in time.
    [[nodiscard]] std::string Next(int timeoutMs = 10000) const {
        while (true) {
            pollfd waited{.fd = fd_.Get(), .events = POLLIN, .revents = 0};
            if (poll(&waited, 1, timeoutMs) <= 0) return "";
            std::array<char, 2048> bytes{};
            sockaddr_ll source{};
            socklen_t size = sizeof(source);
            const ssize_t count =
                recvfrom(fd_.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&source), &size);
            if (count > 0 && source.sll_pkttype != PACKET_OUTGOING) return {bytes.data(), static_cast<size_t>(count)};
        }
    }

  private:
    UniqueFd fd_;
};

// A neighbour discovery message from the far side, as from the link itself.
inline void SendIcmpv6(const char* farInterface, const char* to, std::string_view message) {
    OnFarSide([&] {
        const UniqueFd sender(socket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMPV6));
        const int hops = 255;
        for (const int option : {IPV6_MULTICAST_HOPS, IPV6_UNICAST_HOPS})
            ASSERT_EQ(setsockopt(sender.Get(), IPPROTO_IPV6, option, &hops, sizeof(hops)), 0);
        sockaddr_in6 target{};
        target.sin6_family = AF_INET6;
        target.sin6_scope_id = if_nametoindex(farInterface);
        ASSERT_EQ(inet_pton(AF_INET6, to, &target.sin6_addr), 1);
        // Not before the far side's own link-local address has passed duplicate address detection.
        EXPECT_TRUE(Eventually([&] {
            return sendto(sender.Get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&target),
                          sizeof(target)) == static_cast<ssize_t>(message.size());
        }));
    });
}

// A router behind `farInterface` offers itself for half an hour and the network `prefix`/64 for a day (RFC 4861).
inline void AdvertiseRouter(const char* farInterface, const char* prefix) {
    const std::string none(8, '\0');
    const std::string day = "\0\x01\x51\x80"s;
    SendIcmpv6(farInterface, "ff02::1",
               "\x86\0\0\0\x40\0\x07\x08"s + none +   // 64 hops, 1800 seconds
                   "\x03\x04\x40\xc0"s + day + day +  // prefix information: 64 bits, on the link, autonomous
                   none.substr(4) + std::string(Bytes(Address(prefix).abyAddr)));
}

}  // namespace tessel::test
