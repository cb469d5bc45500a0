// What the kernel tells about interfaces without the daemon.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/addresses.h"

namespace tessel::ctl {

struct KernelLink {
    std::string name;
    bool isUp = false;
    bool hasCarrier = false;  // of an interface that is up
    std::string mac;          // empty: none, or no Ethernet address
    std::vector<ShownAddress> addresses;
};

// Every interface of this process's network namespace, in the kernel's order.
[[nodiscard]] std::vector<KernelLink> KernelLinks();

[[nodiscard]] std::optional<KernelLink> FindKernelLink(std::string_view name);

// The addresses that the interface has of a family, or of both, beside those that the daemon reports.
[[nodiscard]] std::vector<ShownAddress> AddressesBeside(const std::vector<ShownAddress>& told, const KernelLink& link,
                                                        int family);

// "up", "down", "no carrier".
[[nodiscard]] std::string LinkState(const KernelLink& link);

// "there is no interface eth9"; empty when there is one, and the cause lies elsewhere.
[[nodiscard]] std::string MissingInterface(const std::string& name);

// Why the kernel's answer here says nothing about the daemon that this thread's last call reached: it lives in
// another network namespace, or may do so. Empty: it sees the interfaces that this process sees.
[[nodiscard]] std::string ForeignKernel();

}  // namespace tessel::ctl
