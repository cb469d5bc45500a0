#include "client/ctl/firewall_missing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"

namespace tessel::ctl {

namespace {

struct Sender {
    std::string what;  // "DNS"
    TNetGateway host;
};

struct Service {
    u32 port;
    std::string_view name;
};
constexpr Service kServices[] = {{53, "DNS"}, {67, "DHCP"}, {123, "NTP"}, {547, "DHCP"}};

void AddNameServers(std::vector<Sender>& senders) {
    std::ifstream file("/etc/resolv.conf");
    for (std::string word; file >> word;) {
        if (word != "nameserver" || !(file >> word)) continue;
        if (const auto host = ParseHost(word)) senders.push_back({"DNS", *host});
    }
}

// "0101A8C0", or four of those: 32-bit words in the machine's order, as the kernel's proc files have them.
TNetGateway HostOf(const std::string& digits) {
    constexpr std::size_t kWordDigits = 8;
    TNetGateway host{};
    host.wSinFamily = digits.size() == kWordDigits ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
    for (std::size_t i = 0; (i + 1) * kWordDigits <= digits.size() && (i + 1) * sizeof(u32) <= sizeof(host.abyAddr);
         ++i) {
        const auto word = static_cast<u32>(strtoul(digits.substr(i * kWordDigits, kWordDigits).c_str(), nullptr, 16));
        memcpy(host.abyAddr + i * sizeof(word), &word, sizeof(word));
    }
    return host;
}

// Servers that a program of the device is connected to. A line: number, own address:port, the other's.
void AddConnected(const char* path, std::vector<Sender>& senders) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);  // titles
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string other;
        words >> other >> other >> other;
        const std::size_t colon = other.find(':');
        if (!words || colon == std::string::npos) continue;
        const auto port = strtoul(other.substr(colon + 1).c_str(), nullptr, 16);
        for (const Service& service : kServices) {
            if (service.port == port) senders.push_back({std::string(service.name), HostOf(other.substr(0, colon))});
        }
    }
}

std::vector<Sender> Senders() {
    std::vector<Sender> senders;
    AddNameServers(senders);
    for (const char* path : {"/proc/net/udp", "/proc/net/udp6", "/proc/net/tcp", "/proc/net/tcp6"})
        AddConnected(path, senders);
    return senders;
}

struct Network {
    std::string what;
    TNetGateway address;
    u32 prefixLength;
};

// Neighbour discovery (RFC 4861) runs over link-local addresses and over those that are looked for.
std::vector<Network> NeighbourNetworks() {
    constexpr u32 kLinkLocalBits = 10;
    std::vector<Network> networks{{"neighbour discovery", *ParseHost("fe80::"), kLinkLocalBits}};
    for (const KernelLink& link : KernelLinks()) {
        for (const ShownAddress& address : link.addresses) {
            const bool isOnLink = address.family == "inet6" && !address.text.starts_with("fe80") && link.name != "lo";
            if (isOnLink)
                networks.push_back({"neighbours on " + link.name, *ParseHost(address.text), address.prefixLength});
        }
    }
    return networks;
}

class Missing {
  public:
    explicit Missing(const Filter& filter) : filter_(filter), entries_(filter.Entries(kWhitelist)) {}

    void Look(const Network& network) {
        const bool isListed = std::any_of(entries_.begin(), entries_.end(), [&](const SavedRule& rule) {
            return CoversNetwork(rule, network.address, network.prefixLength);
        });
        if (isListed || network.address.wSinFamily != filter_.family) return;
        const std::string source = SourceText(filter_.family, BytesOf(network.address.abyAddr), network.prefixLength);
        const std::string line = fmt::format("\n  tesselctl firewall allow {}   for {}", source, network.what);
        if (text_.find(line) == std::string::npos) text_ += line;
    }
    [[nodiscard]] const std::string& Text() const {
        return text_;
    }

  private:
    const Filter& filter_;
    std::vector<SavedRule> entries_;
    std::string text_;
};

}  // namespace

std::string ShutOutText(const std::vector<Filter>& filters) {
    const std::vector<Sender> senders = Senders();
    std::string lines;
    for (const Filter& filter : filters) {
        Missing missing(filter);
        for (const Sender& sender : senders)
            missing.Look({sender.what, sender.host, HostBits(filter.family)});
        if (filter.family == TESSEL_FAMILY_INET6) {
            for (const Network& network : NeighbourNetworks())
                missing.Look(network);
        }
        lines += missing.Text();
    }
    return "answers to the device's own connections are dropped unless their senders are listed (NTP, DNS, DHCP): "
           "there is no rule for established connections" +
           (lines.empty() ? "" : ". Missing:" + lines);
}

}  // namespace tessel::ctl
