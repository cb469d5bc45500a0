// A host at the far end of eth0's cable.
#pragma once

#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>

#include <chrono>
#include <thread>

#include "bench/daemon.h"

namespace tessel::bench {

// A socket at the far end of eth0's cable.
inline UniqueFd OpenFarSocket() {
    UniqueFd fd;
    std::thread([&] {
        EnterNetwork(OpenNetwork("/run/netns/far"));
        fd.Reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
        if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) Fail("bind");
    }).join();
    return fd;
}

// A broadcast ARP request from a host on the link that looks for another one.
inline std::string ForeignRequest() {
    std::string frame(6, '\xff');
    frame += std::string("\x02\0\0\0\x01\x77\x08\x06\0\x01\x08\0\x06\x04\0\x01\x02\0\0\0\x01\x77\xc0\xa8\x01\x63", 26);
    return frame + std::string(6, '\0') + std::string("\xc0\xa8\x01\x64", 4);
}

struct Flood {
    long packets = 0;
    double seconds = 0;
};

// 20,000 packets a second.
inline Flood SendFlood(const UniqueFd& fd, Clock::duration time) {
    constexpr int kPacketsPerMs = 20;
    const std::string frame = ForeignRequest();
    Flood flood;
    const auto start = Clock::now();
    for (auto next = start; next - start < time; next += std::chrono::milliseconds(1)) {
        std::this_thread::sleep_until(next);
        for (int i = 0; i < kPacketsPerMs; ++i)
            flood.packets += send(fd.Get(), frame.data(), frame.size(), 0) > 0 ? 1 : 0;
    }
    flood.seconds = MicrosecondsOf(Clock::now() - start) / 1e6;
    return flood;
}

}  // namespace tessel::bench
