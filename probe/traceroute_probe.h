// The probes of one trace: small UDP packets to ports where nobody listens, and the ICMP errors that come back.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <optional>

#include "core/types.h"
#include "core/unique_fd.h"
#include "core/worker.h"
#include "probe/icmp_answer.h"
#include "tessel/gateway.h"

namespace tessel {

// How long to wait for a probe's answer. Tests shorten it while no trace runs.
extern std::chrono::milliseconds g_probePatience;

// What differs between IPv4 and IPv6.
struct ProbeFamily {
    u16 code;
    int icmp;  // protocol of the raw socket
    int hopLevel;
    int hopOption;
    socklen_t socketAddressBytes;
    std::size_t addressAt;  // within the socket address
    std::size_t addressBytes;
    u32 (*readAnswer)(std::span<const u8> packet, const ProbePorts& probe, CallSite where);
    // Functions in whose names lines are logged: the one that sends, and the one that receives.
    const char* sender;
    const char* receiver;
};
extern const ProbeFamily kProbeInet;
extern const ProbeFamily kProbeInet6;

// The port that a trace sends from. Concurrent traces share the search: it begins where the first of them found a port,
// because all below that were taken.
class ProbePort {
  public:
    ProbePort() = default;
    ~ProbePort();
    ProbePort(const ProbePort&) = delete;
    ProbePort& operator=(const ProbePort&) = delete;

    // Binds the socket to the first free port from 32768 on. False: there is none.
    [[nodiscard]] bool Bind(int fd, const ProbeFamily& family);

    // Host byte order; 0 before a successful Bind.
    [[nodiscard]] u16 Number() const {
        return number_;
    }

  private:
    u16 number_ = 0;
};

// A socket that sends probes to one target, and one that hears of them. Every failure is logged here.
class ProbeSockets {
  public:
    // `family` is one of the two above.
    ProbeSockets(const ProbeFamily& family, const TNetGateway& target);

    [[nodiscard]] bool IsOpen() const {
        return port_.Number() != 0;
    }

    // How many hops the next probes may go: 1 to 255.
    [[nodiscard]] bool SetHops(u32 hops) const;

    // Sends a probe to this port of the target, host byte order. False when it did not go out; errno says why.
    [[nodiscard]] bool Send(u16 targetPort);

    // Waits for the answer to the probe that was sent last. A type of include/tessel/traceroute.h, or nothing when the
    // worker is no longer wanted.
    [[nodiscard]] std::optional<u32> Receive(const Worker& self);

    // Who sent the ICMP message that came last. The zero address at first and after a time-out.
    [[nodiscard]] TNetGateway Responder() const;

  private:
    void Open();
    void ReadyForIcmpv6() const;
    [[nodiscard]] u32 ReceiveOne();

    const ProbeFamily& family_;
    UniqueFd receiver_;
    UniqueFd sender_;
    ProbePort port_;
    sockaddr_storage destination_{};
    sockaddr_storage responder_{};
    u16 targetPort_ = 0;
};

}  // namespace tessel
