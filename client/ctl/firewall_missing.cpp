// The whitelist has no rule for established connections: who answers the device has to be listed.
#include <fstream>
#include <sstream>

#include "client/ctl/firewall.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

struct Sender {
    std::string what;  // "DNS"
    Network network;
};

struct Service {
    u32 port;
    const char* name;
};
constexpr Service kNeededServices[] = {{53, "DNS"}, {67, "DHCP"}, {123, "NTP"}, {547, "DHCP"}};

// Servers that a program of the device is connected to. A line: number, own address:port, the other's.
void AddConnected(const char* path, std::vector<Sender>& senders) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string other;
        words >> other >> other >> other;
        const auto port = ParseNumber("0x" + other.substr(std::min(other.find(':'), other.size() - 1) + 1));
        for (const Service& service : kNeededServices) {
            if (port == service.port) senders.push_back({service.name, AddressInTable(other)});
        }
    }
}

std::vector<Sender> Senders() {
    std::vector<Sender> senders;
    std::ifstream resolver("/etc/resolv.conf");
    for (std::string word; resolver >> word;) {
        if (word != "nameserver" || !(resolver >> word)) continue;
        if (const auto host = ParseHost(word)) senders.push_back({"DNS", *host});
    }
    for (const char* path : {"/proc/net/udp", "/proc/net/udp6", "/proc/net/tcp", "/proc/net/tcp6"})
        AddConnected(path, senders);
    // Neighbour discovery (RFC 4861) runs over link-local addresses and over those that are looked for.
    senders.push_back({"neighbour discovery", *ParseNetwork("fe80::/10")});
    for (const Json& link : KernelLinks()) {
        for (const Json& address : link["addresses"]) {
            auto network = *ParseHost(TextOf(address, "address"));
            network.length = static_cast<u32>(NumberOf(address, "prefix_length"));
            const bool isOnLink = network.family == TESSEL_FAMILY_INET6 && TextOf(address, "scope") == "global";
            if (isOnLink) senders.push_back({"neighbours on " + TextOf(link, "interface"), Masked(network)});
        }
    }
    return senders;
}

}  // namespace

std::vector<std::string> MissingEntries(const Filter& filter) {
    std::vector<std::string> lines;
    const auto entries = filter.Entries(kWhitelist);
    for (const Sender& sender : Senders()) {
        const bool isListed = std::any_of(entries.begin(), entries.end(),
                                          [&](const FilterRule& rule) { return CoversNetwork(rule, sender.network); });
        const std::string text = sender.network.IsHost() ? HostText(sender.network) : NetworkText(sender.network);
        const std::string line = Format("tesselctl firewall allow {}   for {}", text, sender.what);
        const bool isKnown = std::find(lines.begin(), lines.end(), line) != lines.end();
        if (sender.network.family == filter.family && !isListed && !isKnown) lines.push_back(line);
    }
    return lines;
}

}  // namespace tessel::ctl
