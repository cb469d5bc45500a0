#include "client/ctl/kernel.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <memory>

#include "client/ctl/processes.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

template <typename Address>
Address ReadAddress(const sockaddr* from) {
    Address address;
    memcpy(&address, from, sizeof(address));
    return address;
}

template <std::size_t kBytes>
u32 PrefixLength(const u8 (&mask)[kBytes]) {
    int bits = 0;
    for (const u8 byte : mask)
        bits += std::popcount(byte);
    return static_cast<u32>(bits);
}

ShownAddress Inet(const ifaddrs& entry) {
    const auto address = ReadAddress<sockaddr_in>(entry.ifa_addr);
    u32 prefixLength = 32;
    if (entry.ifa_netmask != nullptr) {
        prefixLength = static_cast<u32>(std::popcount(ReadAddress<sockaddr_in>(entry.ifa_netmask).sin_addr.s_addr));
    }
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
    return {.text = text, .family = FamilyName(TESSEL_FAMILY_INET), .prefixLength = prefixLength};
}

ShownAddress Inet6(const ifaddrs& entry) {
    const auto address = ReadAddress<sockaddr_in6>(entry.ifa_addr);
    u32 prefixLength = 128;
    if (entry.ifa_netmask != nullptr) {
        prefixLength = PrefixLength(ReadAddress<sockaddr_in6>(entry.ifa_netmask).sin6_addr.s6_addr);
    }
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, &address.sin6_addr, text, sizeof(text));
    return {.text = text, .family = FamilyName(TESSEL_FAMILY_INET6), .prefixLength = prefixLength};
}

std::string MacOf(const ifaddrs& entry) {
    const auto address = ReadAddress<sockaddr_ll>(entry.ifa_addr);
    constexpr int kEthernetBytes = 6;
    if (address.sll_hatype != ARPHRD_ETHER || address.sll_halen != kEthernetBytes) return "";
    return fmt::format("{:02x}", fmt::join(address.sll_addr, address.sll_addr + kEthernetBytes, ":"));
}

KernelLink& LinkNamed(std::vector<KernelLink>& links, const ifaddrs& entry) {
    const auto found =
        std::find_if(links.begin(), links.end(), [&](const KernelLink& link) { return link.name == entry.ifa_name; });
    if (found != links.end()) return *found;
    return links.emplace_back(KernelLink{.name = entry.ifa_name,
                                         .isUp = (entry.ifa_flags & IFF_UP) != 0,
                                         .hasCarrier = (entry.ifa_flags & IFF_RUNNING) != 0,
                                         .mac = {},
                                         .addresses = {}});
}

}  // namespace

std::vector<KernelLink> KernelLinks() {
    std::vector<KernelLink> links;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return links;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        KernelLink& link = LinkNamed(links, *entry);
        if (entry->ifa_addr == nullptr) continue;
        switch (entry->ifa_addr->sa_family) {
            case AF_INET:
                link.addresses.push_back(Inet(*entry));
                break;
            case AF_INET6:
                link.addresses.push_back(Inet6(*entry));
                break;
            case AF_PACKET:
                link.mac = MacOf(*entry);
                break;
            default:
                break;
        }
    }
    return links;
}

std::optional<KernelLink> FindKernelLink(std::string_view name) {
    for (KernelLink& link : KernelLinks()) {
        if (link.name == name) return std::move(link);
    }
    return std::nullopt;
}

std::vector<ShownAddress> AddressesBeside(const std::vector<ShownAddress>& told, const KernelLink& link, int family) {
    std::vector<ShownAddress> beside;
    std::copy_if(
        link.addresses.begin(), link.addresses.end(), std::back_inserter(beside), [&](const ShownAddress& address) {
            const bool isMeant = family == TESSEL_FAMILY_BOTH || address.family == FamilyName(static_cast<u32>(family));
            return isMeant && std::none_of(told.begin(), told.end(), [&](const ShownAddress& one) {
                       return AddressText(one) == AddressText(address);
                   });
        });
    return beside;
}

std::string LinkState(const KernelLink& link) {
    if (!link.isUp) return "down";
    return link.hasCarrier ? "up" : "no carrier";
}

std::string MissingInterface(const std::string& name) {
    return FindKernelLink(name) ? "" : fmt::format("there is no interface {}", name);
}

std::string ForeignKernel() {
    const auto shares = SharesOurNetwork(tessel_daemon_pid());
    if (!shares) return "it cannot be told from here which network namespace the daemon lives in";
    return *shares ? "" : "the daemon lives in another network namespace";
}

}  // namespace tessel::ctl
