// Static ARP entries, read back from the kernel.
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

struct Neighbour {
    std::string address;
    std::string mac;
    std::string interfaceName;
    u32 flags = 0;

    // ATF_PERM and ATF_COM of <net/if_arp.h>.
    [[nodiscard]] bool IsPermanent() const {
        return (flags & 0x04) != 0;
    }
    [[nodiscard]] bool IsComplete() const {
        return (flags & 0x02) != 0;
    }
};

// A line of the file: address, type, flags, hardware address, mask, interface.
std::vector<Neighbour> Neighbours() {
    std::vector<Neighbour> neighbours;
    std::ifstream file("/proc/net/arp");
    std::string line;
    std::getline(file, line);  // titles
    while (std::getline(file, line)) {
        std::istringstream words(line);
        Neighbour neighbour;
        std::string type;
        std::string flags;
        std::string mask;
        words >> neighbour.address >> type >> flags >> neighbour.mac >> mask >> neighbour.interfaceName;
        neighbour.flags = ParseNumber(flags).value_or(0);
        if (words) neighbours.push_back(neighbour);
    }
    return neighbours;
}

ordered_json NeighbourJson(const Neighbour& neighbour) {
    return {{"address", neighbour.address},
            {"mac", neighbour.IsComplete() ? ordered_json(neighbour.mac) : ordered_json()},
            {"interface", neighbour.interfaceName},
            {"permanent", neighbour.IsPermanent()}};
}

bool HasPermanent(const std::string& address, const std::string& mac, const std::string& interfaceName) {
    const auto neighbours = Neighbours();
    return std::any_of(neighbours.begin(), neighbours.end(), [&](const Neighbour& neighbour) {
        return neighbour.IsPermanent() && neighbour.address == address && (mac.empty() || neighbour.mac == mac) &&
               (interfaceName.empty() || neighbour.interfaceName == interfaceName);
    });
}

struct ArpChange {
    std::string address;
    std::string interfaceName;
    std::string asked;

    [[nodiscard]] const char* Name() const {
        return interfaceName.empty() ? nullptr : interfaceName.c_str();
    }
};

ArpChange ChangeOf(const Arguments& words, std::string_view verb) {
    return {.address = words.Get("A"),
            .interfaceName = words.Get("dev"),
            .asked = fmt::format("arp {} {}", verb, words.Get("A"))};
}

Outcome Done(const ArpChange& change, const ordered_json& mac, std::string_view what) {
    Outcome outcome;
    outcome.document = {{"address", change.address}, {"mac", mac}, {"interface", NullIfEmpty(change.interfaceName)}};
    outcome.done = fmt::format("{}   {}", change.address, what);
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) outcome.notes.push_back("not read back: " + foreign);
    return outcome;
}

}  // namespace

Outcome ArpShow(const Invocation& /*invocation*/) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.header = {"ADDRESS", "MAC", "INTERFACE", ""};
    for (const Neighbour& neighbour : Neighbours()) {
        outcome.document.push_back(NeighbourJson(neighbour));
        outcome.table.rows.push_back({{neighbour.address},
                                      {neighbour.IsComplete() ? neighbour.mac : "-"},
                                      {neighbour.interfaceName},
                                      {neighbour.IsPermanent() ? "permanent" : ""}});
    }
    return outcome;
}

Outcome ArpAdd(const Invocation& invocation) {
    const ArpChange change = ChangeOf(invocation.words, "add");
    const TNetGateway host = *ParseHost(change.address);
    if (host.wSinFamily != TESSEL_FAMILY_INET) return Refused(change.asked, "ARP is for IPv4 addresses");
    const Mac mac = *ParseMac(invocation.words.Get("M"));
    const int error = tessel_arp_add(change.Name(), change.address.c_str(), mac.data());
    if (error != TESSEL_OK) {
        const bool isTold = error == TESSEL_E_FAILED && ForeignKernel().empty();
        return CallFailed(change.asked, error, isTold ? WhyUnreachable(host, change.interfaceName) : "");
    }
    if (ForeignKernel().empty() && !HasPermanent(change.address, MacText(mac), change.interfaceName)) {
        return NotApplied(change.asked, "answered success, but the kernel has no such entry");
    }
    return Done(change, MacText(mac), "is at " + MacText(mac));
}

Outcome ArpDel(const Invocation& invocation) {
    const ArpChange change = ChangeOf(invocation.words, "del");
    if (ParseHost(change.address)->wSinFamily != TESSEL_FAMILY_INET) {
        return Refused(change.asked, "ARP is for IPv4 addresses");
    }
    const int error = tessel_arp_del(change.Name(), change.address.c_str());
    if (error != TESSEL_OK) {
        const bool isMissing = error == TESSEL_E_FAILED && ForeignKernel().empty() &&
                               !HasPermanent(change.address, "", change.interfaceName);
        return CallFailed(change.asked, error, isMissing ? "there is no such entry" : "");
    }
    if (ForeignKernel().empty() && HasPermanent(change.address, "", change.interfaceName)) {
        return NotApplied(change.asked, "answered success, but the entry is still there");
    }
    return Done(change, nullptr, "deleted");
}

}  // namespace tessel::ctl
