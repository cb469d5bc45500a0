// An NTP server among the far hosts, whose answers a test gives one by one.
#pragma once

#include <netinet/in.h>

#include <algorithm>
#include <string>

#include "tests/support/far.h"
#include "tests/support/logged.h"

namespace tessel::test {

class NtpServer {
  public:
    static const char* AddressOf(u16 family) {
        return family == AF_INET ? "10.7.0.2" : "fd07::2";
    }
    // Addresses at both ends of the link, for both families.
    static void Connect() {
        RunOnDevice(
            "ip addr add 10.7.0.1/24 dev eth0; ip addr add fd07::1/64 dev eth0 nodad;"
            "ip -n far addr add 10.7.0.2/24 dev far0; ip -n far addr add fd07::2/64 dev far0 nodad");
    }

    explicit NtpServer(u16 family) {
        OnFarSide([&] {
            fd_.Reset(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            other_.Reset(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            const int alone = 1;  // leaves IPv4 to the other
            (void)setsockopt(fd_.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &alone, sizeof(alone));
            sockaddr_in6 any{};  // as long as the other, and begins like it: family and port
            any.sin6_family = family;
            any.sin6_port = htons(123);
            ASSERT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&any), sizeof(any)), 0);
        });
    }

    // The next question; empty when none came in time.
    std::string Receive(int timeoutMs = 20000) {
        pollfd waited{.fd = fd_.Get(), .events = POLLIN, .revents = 0};
        if (poll(&waited, 1, timeoutMs) <= 0) return "";
        char bytes[100];
        clientBytes_ = sizeof(client_);
        const ssize_t count =
            recvfrom(fd_.Get(), bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr*>(&client_), &clientBytes_);
        question_.assign(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return question_;
    }

    // To who has asked last.
    void Send(std::string_view bytes, bool fromOtherPort = false) {
        EXPECT_EQ(sendto((fromOtherPort ? other_ : fd_).Get(), bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr*>(&client_), clientBytes_),
                  static_cast<ssize_t>(bytes.size()));
    }

    // An answer from which the time is made out to be this one. NTP counts from 1900 to 2036: for times beyond, the
    // answer gives another time at which it was asked.
    [[nodiscard]] std::string Time(i64 seconds, i64 microseconds) const {
        constexpr i64 kSince1900 = 2208988800;
        const i64 said = std::clamp<i64>(seconds, -kSince1900, 0xffffffff - kSince1900);
        std::string originate = question_.substr(40, 8);
        u32 word = 0;
        memcpy(&word, originate.data(), sizeof(word));
        word = htonl(static_cast<u32>(ntohl(word) - 2 * (seconds - said)));
        memcpy(originate.data(), &word, sizeof(word));
        const std::string stamp = Word(said + kSince1900) + Word((microseconds << 32) / 1000000);
        return std::string(24, '\0') + originate + stamp + stamp;
    }

  private:
    static std::string Word(i64 value) {
        return Number(htonl(static_cast<u32>(value)));
    }

    UniqueFd fd_;
    UniqueFd other_;
    sockaddr_storage client_{};
    socklen_t clientBytes_ = 0;
    std::string question_;
};

}  // namespace tessel::test
