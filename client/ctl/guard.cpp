#include "client/ctl/guard.h"

#include <fstream>
#include <sstream>

#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

constexpr u32 kInet6Bytes = 16;
constexpr u32 kMappedBytes = 12;

// A server for both families has IPv4 hosts as "::ffff:192.168.1.77".
Network Unmapped(const Network& address) {
    const Network mapped{
        .family = TESSEL_FAMILY_INET6, .bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff}, .length = kMappedBytes * 8};
    if (!Covers(mapped, address)) return address;
    Network inet{.family = TESSEL_FAMILY_INET, .length = 32};
    std::copy(address.bytes.begin() + kMappedBytes, address.bytes.end(), inet.bytes.begin());
    return inet;
}

// Link-local addresses carry their interface: "fe80::1%eth0".
std::optional<Network> AddressIn(const std::string& word) {
    const auto address = ParseHost(word.substr(0, word.find('%')));
    return address ? std::optional(Unmapped(*address)) : std::nullopt;
}

// SSH_CONNECTION: client's address and port, server's address and port.
std::optional<Session> OwnSession() {
    const char* connection = getenv("SSH_CONNECTION");
    std::istringstream words(connection == nullptr ? "" : connection);
    std::array<std::string, 4> parts;
    for (std::string& part : parts)
        words >> part;
    const auto address = AddressIn(parts[0]);
    if (!address) return std::nullopt;
    return Session{.text = "your session comes from " + HostText(*address),
                   .peer = *address,
                   .device = AddressIn(parts[2]),
                   .devicePort = ParseNumber(parts[3])};
}

}  // namespace

// proc(5): the address in words of 4 bytes as this processor's numbers.
Network AddressInTable(const std::string& word) {
    constexpr std::size_t kDigits = 8;
    const std::size_t digits = word.find(':');
    const bool isInet6 = digits == 2 * kInet6Bytes;
    Network address{.family = isInet6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET};
    address.length = address.FullLength();
    for (std::size_t at = 0; at + kDigits <= std::min<std::size_t>(digits, 2 * kInet6Bytes); at += kDigits) {
        const auto part = static_cast<u32>(std::strtoul(word.substr(at, kDigits).c_str(), nullptr, 16));
        std::memcpy(address.bytes.data() + at / 2, &part, sizeof(part));
    }
    return Unmapped(address);
}

namespace {

void AddConnections(const char* path, std::vector<Session>& sessions) {
    constexpr const char* kEstablished = "01";
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        if (fields.size() < 4 || fields[3] != kEstablished) continue;
        const auto port = ParseNumber("0x" + fields[1].substr(fields[1].find(':') + 1));
        if (port != 22U && port != 23U) continue;
        const Network peer = AddressInTable(fields[2]);
        const bool isKnown = std::any_of(sessions.begin(), sessions.end(), [&](const Session& one) {
            return one.peer == peer && (!one.devicePort || one.devicePort == port);
        });
        if (isKnown) continue;
        sessions.push_back({.text = Format("{} is connected to port {}", HostText(peer), *port),
                            .peer = peer,
                            .device = AddressInTable(fields[1]),
                            .devicePort = port});
    }
}

}  // namespace

std::optional<Session> GuardedSession(const Options& options) {
    if (!options.protect) return OwnSession();
    return Session{.text = "--protect names " + HostText(*options.protect),
                   .peer = *options.protect,
                   .device = std::nullopt,
                   .devicePort = std::nullopt};
}

std::vector<Session> KnownSessions(const Options& options) {
    std::vector<Session> sessions;
    if (const auto guarded = GuardedSession(options)) sessions.push_back(*guarded);
    for (const char* path : {"/proc/net/tcp", "/proc/net/tcp6"})
        AddConnections(path, sessions);
    return sessions;
}

std::string CutsSessionAt(const Network& address) {
    const auto own = OwnSession();
    const bool isIt =
        own && own->device && own->device->bytes == address.bytes && own->device->family == address.family;
    return isIt ? "your session runs over " + HostText(address) : "";
}

std::string CutsSessionOn(const std::string& interfaceName) {
    const auto own = OwnSession();
    if (!own || !own->device) return "";
    if (interfaceName.empty()) return CutsSessionAt(*own->device);
    const Json link = KernelLink(interfaceName);
    const bool isThere = !link.is_null() && LinkHas(link, *own->device);
    return isThere ? CutsSessionAt(*own->device) : "";
}

}  // namespace tessel::ctl
