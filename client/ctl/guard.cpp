#include <bit>
#include <fstream>

#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

// Link-local addresses carry their interface ("fe80::1%eth0"), and a server for both families has IPv4 hosts as
// "::ffff:192.168.1.77".
std::optional<Network> AddressIn(std::string_view text) {
    constexpr std::string_view kMapped = "::ffff:";
    const std::string_view word = text.substr(0, text.find('%'));
    const auto inet = word.starts_with(kMapped) ? ParseHost(word.substr(kMapped.size())) : std::nullopt;
    return inet ? inet : ParseHost(word);
}

// SSH_CONNECTION: client's address and port, server's address and port.
std::optional<Session> OwnSession() {
    const char* connection = getenv("SSH_CONNECTION");
    const auto parts = Split(connection == nullptr ? "" : connection, ' ');
    const auto peer = parts.size() == 4 ? AddressIn(parts[0]) : std::nullopt;
    if (!peer) return std::nullopt;
    return Session{"your session comes from " + HostText(*peer), *peer, AddressIn(parts[2]), ParseNumber(parts[3])};
}

// proc(5): "0100007F", words of 4 bytes as this processor's numbers.
Network HostInTable(const std::string& digits) {
    std::array<u32, 4> words{};
    (void)sscanf(digits.c_str(), "%8x%8x%8x%8x", &words[0], &words[1], &words[2], &words[3]);
    Network host{.family = digits.size() > 8 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET,
                 .bytes = std::bit_cast<std::array<u8, 16>>(words)};
    host.length = host.FullLength();
    return AddressIn(HostText(host)).value_or(host);
}

// Nothing: it cannot be judged.
using Answer = std::optional<bool>;

// One direction of a session, or whatever comes from a network. What is not known meets no condition.
struct Packet {
    std::string_view protocol = {};
    std::optional<Network> source = {};
    std::optional<Network> destination = {};
    std::optional<u32> sourcePort = {};
    std::optional<u32> destinationPort = {};
};

// Every address of a network or host, in "10.0.0.0/8" or "10.0.0.1-10.0.0.9".
Answer IsIn(const std::string& text, const std::optional<Network>& network) {
    if (!network) return std::nullopt;
    if (const auto range = ParseRange(text)) {
        return range->first.family == network->family && range->first.bytes <= Masked(*network).bytes &&
               LastOf(*network).bytes <= range->last.bytes;
    }
    const auto outer = ParseNetwork(text);
    return outer ? Answer(Covers(*outer, *network)) : std::nullopt;
}

Answer HasPort(const std::string& text, const std::optional<u32>& port) {
    const auto ports = ParsePorts(text);
    if (!ports || !port) return std::nullopt;
    return std::ranges::any_of(*ports, [&](auto& range) { return range.first <= *port && *port <= range.second; });
}

// Only of neighbours.
Answer ComesFrom(const std::string& mac, const std::optional<Network>& host) {
    const Json neighbour = host ? FindIn(KernelNeighbours(host->family), "address", HostText(*host)) : Json();
    const auto known = ParseMac(TextOf(neighbour, "mac"));
    return known ? Answer(known == ParseMac(mac)) : std::nullopt;
}

// Whether the device's side of the session is an address of this interface: a packet's other end never is.
Answer RunsOver(const std::string& interfaceName, const std::optional<Network>& end) {
    const Json link = end ? KernelLink(interfaceName) : Json();
    if (link.is_null()) return std::nullopt;
    return !FindIn(link.at("addresses"), "address", HostText(*end)).is_null();
}

Answer Meets(const std::string& option, const std::string& value, const Packet& packet) {
    if (option == "-m" || option == "--comment") return true;
    if (option == "-p") return value == packet.protocol || value == "all";
    if (option == "-s" || option == "--src-range") return IsIn(value, packet.source);
    if (option == "-d" || option == "--dst-range") return IsIn(value, packet.destination);
    if (option == "--sport" || option == "--sports") return HasPort(value, packet.sourcePort);
    if (option == "--dport" || option == "--dports") return HasPort(value, packet.destinationPort);
    if (option == "--mac-source") return ComesFrom(value, packet.source);
    if (option == "-i") return RunsOver(value, packet.destination);
    if (option == "-o") return RunsOver(value, packet.source);
    return std::nullopt;
}

// Every condition up to the target must be met.
bool Matches(const std::vector<std::string>& words, const Packet& packet) {
    for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
        const bool isNegated = words[i] == "!";
        if (isNegated && ++i + 1 == words.size()) return false;
        if (words[i] == "-j" || words[i] == "-g") break;
        const Answer answer = Meets(words[i], words[i + 1], packet);
        if (!answer || *answer == isNegated) return false;
    }
    return true;
}

// Whether a chain accepts or drops. Nothing: packets come back from it.
Answer Judge(const Filter& filter, const std::string& chain, const Packet& packet, int depth = 0) {
    // No rule set of ours is deeper. The kernel refuses loops, but a file may contain them.
    constexpr int kDepthMax = 16;
    for (const FilterRule& rule : filter.rules) {
        if (rule.chain != chain || !Matches(rule.words, packet)) continue;
        const std::string after = rule.Get("-g");
        const std::string target = after.empty() ? rule.Get("-j") : after;
        if (target == "ACCEPT") return true;
        if (target == "DROP" || target == "REJECT") return false;
        if (target == "RETURN") return std::nullopt;
        if (!filter.policies.contains(target) || depth == kDepthMax) continue;
        const Answer answer = Judge(filter, target, packet, depth + 1);
        if (answer || !after.empty()) return answer;
    }
    return std::nullopt;
}

}  // namespace

std::vector<Session> Connections(const std::string& protocol) {
    constexpr u32 kEstablished = 1;
    std::vector<Session> connections;
    for (const std::string& table : {protocol, protocol + "6"}) {
        std::ifstream file("/proc/net/" + table);
        for (std::string line; std::getline(file, line);) {
            char hosts[2][33];
            u32 ports[2];
            u32 state = 0;
            (void)sscanf(line.c_str(), "%*u: %32[0-9A-F]:%x %32[0-9A-F]:%x %x", hosts[0], &ports[0], hosts[1],
                         &ports[1], &state);
            if (state == kEstablished)
                connections.push_back({"", HostInTable(hosts[1]), HostInTable(hosts[0]), ports[0], ports[1]});
        }
    }
    return connections;
}

std::optional<Session> GuardedSession(const Options& options) {
    if (!options.protect) return OwnSession();
    std::string problem;
    const Json way = KernelRouteTo(*options.protect, nullptr, std::nullopt, problem);
    return Session{"--protect names " + HostText(*options.protect), *options.protect, ParseHost(TextOf(way, "source"))};
}

std::vector<Session> KnownSessions(const Options& options) {
    std::vector<Session> sessions;
    if (const auto guarded = GuardedSession(options)) sessions.push_back(*guarded);
    for (Session& one : Connections("tcp")) {
        const u32 port = *one.devicePort;
        const bool isKnown = std::any_of(sessions.begin(), sessions.end(), [&](const Session& known) {
            return known.peer == one.peer && known.devicePort.value_or(port) == port;
        });
        if (isKnown || (port != 22 && port != 23)) continue;
        one.text = Format("{} is connected to port {}", HostText(one.peer), port);
        sessions.push_back(one);
    }
    return sessions;
}

std::string CutsSession(const Options& options, const std::function<bool(const Network& device)>& isLost) {
    const auto session = GuardedSession(options);
    if (!session || !session->device || !isLost(*session->device)) return "";
    const std::string text = HostText(*session->device);
    if (options.protect) return Format("{}, which is reached from {}", session->text, text);
    return "your session runs over " + text;
}

std::string CutsSessionOn(const Options& options, const std::string& interfaceName) {
    return CutsSession(options, [&](const Network& device) {
        return interfaceName.empty() || RunsOver(interfaceName, device) == true;
    });
}

bool LetsThrough(const Filter& filter, const Session& session) {
    const Packet in{"tcp", session.peer, session.device, session.peerPort, session.devicePort};
    const Packet out{"tcp", session.device, session.peer, session.devicePort, session.peerPort};
    return Judge(filter, "INPUT", in).value_or(filter.policies.at("INPUT") != "DROP") &&
           Judge(filter, "OUTPUT", out).value_or(filter.policies.at("OUTPUT") != "DROP");
}

bool IsListed(const Filter& filter, const Network& network) {
    const auto entries = filter.Entries(kWhitelist);
    return std::ranges::any_of(entries, [&](auto& rule) { return Matches(rule.words, {.source = network}); });
}

}  // namespace tessel::ctl
