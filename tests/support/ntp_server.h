// An NTP server among the far hosts, whose answers a test gives one by one.
#pragma once

#include <algorithm>

#include "tests/support/far.h"
#include "tests/support/logged.h"

namespace tessel::test {

class NtpServer {
  public:
    explicit NtpServer(u16 family) {
        OnFarSide([&] {
            fd_ = BoundTo(123, family, SOCK_DGRAM, 1);
            otherPort_.Reset(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        });
    }

    // The next question.
    const std::string& Receive() {
        question_.assign(48, '\0');
        (void)recvfrom(fd_.Get(), question_.data(), question_.size(), 0, reinterpret_cast<sockaddr*>(&client_),
                       &bytes_);
        return question_;
    }

    // To who has asked last.
    void Send(std::string_view answer, bool fromOtherPort = false) {
        (void)sendto((fromOtherPort ? otherPort_ : fd_).Get(), answer.data(), answer.size(), 0,
                     reinterpret_cast<const sockaddr*>(&client_), bytes_);
    }

    // An answer from which the time is made out to be this one. NTP counts from 1900 to 2036: for times beyond, the
    // answer gives another time at which it was asked.
    [[nodiscard]] std::string Time(i64 seconds, i64 microseconds = 0) const {
        constexpr i64 kSince1900 = 2208988800;
        const i64 said = std::clamp<i64>(seconds, -kSince1900, 0xffffffff - kSince1900);
        u32 asked = 0;
        memcpy(&asked, &question_[40], sizeof(asked));
        const auto word = [](i64 value) { return Number(htonl(static_cast<u32>(value))); };
        const std::string stamp = word(said + kSince1900) + word((microseconds << 32) / 1000000);
        return std::string(24, '\0') + word(ntohl(asked) + 2 * (said - seconds)) + question_.substr(44) + stamp + stamp;
    }

  private:
    UniqueFd fd_;
    UniqueFd otherPort_;
    sockaddr_storage client_{};
    socklen_t bytes_ = sizeof(client_);
    std::string question_;
};

}  // namespace tessel::test
