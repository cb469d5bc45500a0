// What the packet filter makes of packets that are described before they come.
#include "client/ctl/filter.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

// No rule set of ours is deeper. The kernel refuses loops, a file may have some.
constexpr int kDepthMax = 16;

// Nothing: it cannot be judged.
using Answer = std::optional<bool>;

// One direction of a session.
struct Packet {
    bool isIncoming;
    std::optional<Network> source;
    std::optional<Network> destination;
    std::optional<u32> sourcePort;
    std::optional<u32> destinationPort;
};

Answer IsIn(const std::string& network, const std::optional<Network>& host) {
    auto parsed = ParseNetwork(network);
    if (!parsed) parsed = ParseHost(network);
    return parsed && host ? Answer(Covers(*parsed, *host)) : std::nullopt;
}

Answer IsInRange(const std::string& text, const std::optional<Network>& host) {
    const auto range = ParseRange(text);
    return range && host ? Answer(range->first <= *host && *host <= range->last) : std::nullopt;
}

Answer HasPort(const std::string& text, const std::optional<u32>& port) {
    const auto ports = ParsePorts(text);
    if (!ports || !port) return std::nullopt;
    return std::any_of(ports->begin(), ports->end(),
                       [&](const auto& range) { return range.first <= *port && *port <= range.second; });
}

// Only of neighbours.
Answer ComesFrom(const std::string& mac, const std::optional<Network>& host) {
    if (!host) return std::nullopt;
    for (const Json& neighbour : KernelNeighbours(host->family)) {
        if (TextOf(neighbour, "address") == HostText(*host) && neighbour["mac"].is_string())
            return ParseMac(TextOf(neighbour, "mac")) == ParseMac(mac);
    }
    return std::nullopt;
}

// Whether the device's side of the session is an address of this interface.
Answer RunsOver(const std::string& interfaceName, const std::optional<Network>& device) {
    const Json link = device && !interfaceName.ends_with('+') ? KernelLink(interfaceName) : Json();
    return link.is_null() ? std::nullopt : Answer(LinkHas(link, *device));
}

Answer Meets(const std::string& option, const std::string& value, const Packet& packet) {
    if (option == "-m" || option == "--comment") return true;
    if (option == "-p") return value == "tcp" || value == "all";
    if (option == "-s") return IsIn(value, packet.source);
    if (option == "-d") return IsIn(value, packet.destination);
    if (option == "--src-range") return IsInRange(value, packet.source);
    if (option == "--dst-range") return IsInRange(value, packet.destination);
    if (option == "--sport" || option == "--sports") return HasPort(value, packet.sourcePort);
    if (option == "--dport" || option == "--dports") return HasPort(value, packet.destinationPort);
    if (option == "--mac-source" && packet.isIncoming) return ComesFrom(value, packet.source);
    if (option == "-i" && packet.isIncoming) return RunsOver(value, packet.destination);
    if (option == "-o" && !packet.isIncoming) return RunsOver(value, packet.source);
    return std::nullopt;
}

// Every condition up to the target has to be met.
bool Matches(const FilterRule& rule, const Packet& packet) {
    bool isNegated = false;
    for (std::size_t i = 0; i < rule.words.size(); ++i) {
        const std::string& word = rule.words[i];
        if (word == "-j" || word == "-g") return true;
        if (word == "!") {
            isNegated = true;
            continue;
        }
        const std::string value = i + 1 < rule.words.size() ? rule.words[i + 1] : "";
        const Answer answer = Meets(word, value, packet);
        if (!answer || *answer == isNegated) return false;
        isNegated = false;
        ++i;
    }
    return true;
}

// Whether a chain accepts or drops. Nothing: packets come back from it.
Answer Judge(const Filter& filter, const std::string& chain, const Packet& packet, int depth = 0) {
    for (const FilterRule& rule : filter.rules) {
        if (rule.chain != chain || !Matches(rule, packet)) continue;
        const std::string after = rule.Get("-g");
        const std::string target = after.empty() ? rule.Get("-j") : after;
        if (target == "ACCEPT") return true;
        if (target == "DROP" || target == "REJECT") return false;
        if (target == "RETURN") return std::nullopt;
        if (!filter.HasChain(target) || depth == kDepthMax) continue;
        const Answer answer = Judge(filter, target, packet, depth + 1);
        if (answer || !after.empty()) return answer;
    }
    return std::nullopt;
}

bool Passes(const Filter& filter, const std::string& chain, const Packet& packet) {
    const auto policy = filter.policies.find(chain);
    const bool otherwise = policy == filter.policies.end() || policy->second != "DROP";
    return Judge(filter, chain, packet).value_or(otherwise);
}

}  // namespace

bool LetsThrough(const Filter& filter, const Session& session) {
    const Packet in{true, session.peer, session.device, std::nullopt, session.devicePort};
    const Packet out{false, session.device, session.peer, session.devicePort, std::nullopt};
    return Passes(filter, "INPUT", in) && Passes(filter, "OUTPUT", out);
}

bool CoversNetwork(const FilterRule& rule, const Network& network) {
    const Network first = Masked(network);
    for (std::size_t i = 0; i + 1 < rule.words.size() && rule.words[i] != "-j"; i += 2) {
        const std::string& value = rule.words[i + 1];
        if (rule.words[i] == "-m") continue;
        if (rule.words[i] == "-s") {
            if (IsIn(value, network) != true) return false;
        } else if (rule.words[i] == "--src-range") {
            Network start = first;
            start.length = network.FullLength();
            Network last = LastOf(network);
            last.length = network.FullLength();
            if (IsInRange(value, start) != true || IsInRange(value, last) != true) return false;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace tessel::ctl
